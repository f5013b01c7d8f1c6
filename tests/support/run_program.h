#pragma once
// Runs the built program in a chosen folder and captures what it printed and its exit status.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "temp_dir.h"

namespace qm::test {

struct ProgramRun {
  int status = -1;
  std::string out;
  std::string err;
};

inline ProgramRun runProgram(const std::string& binary, const std::vector<std::string>& args,
                             const std::string& working_directory) {
  TempDir capture;
  std::string out_path = capture / "stdout";
  std::string err_path = capture / "stderr";
  pid_t pid = fork();
  if (pid == 0) {
    if (chdir(working_directory.c_str()) != 0) _exit(250);
    int out = open(out_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    int err = open(err_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    dup2(out, 1);
    dup2(err, 2);
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(binary.c_str()));
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    execv(binary.c_str(), argv.data());
    _exit(251);
  }
  ProgramRun run;
  int wstatus = 0;
  waitpid(pid, &wstatus, 0);
  run.status = WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : 1000 + WTERMSIG(wstatus);
  run.out = readFile(out_path);
  run.err = readFile(err_path);
  return run;
}

}  // namespace qm::test
