#pragma once
// Runs the built program in a chosen folder and captures what it printed and its exit status.
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "temp_dir.h"

namespace qm::test {

struct ProgramRun {
  int status = -1;  // the exit status, or 1000 + the signal that ended the program
  std::string out;
  std::string err;
};

// Limits the child runs under.
struct ChildLimits {
  long long file_size = -1;  // bytes a file may grow to; -1 for no limit
};

// In a forked child: runs the program in `working_directory`; never returns.
[[noreturn]] inline void execInFolder(const std::string& binary, const std::vector<std::string>& args,
                                      const std::string& working_directory) {
  if (chdir(working_directory.c_str()) != 0) _exit(250);
  // Stop signals as a program started from a terminal gets them, however the tests were started
  // (a script's background job ignores SIGINT, say).
  for (int stop : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) signal(stop, SIG_DFL);
  std::vector<char*> argv;
  argv.push_back(const_cast<char*>(binary.c_str()));
  for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  execv(binary.c_str(), argv.data());
  _exit(251);
}

// A started program; wait() collects it.
class ProgramProcess {
 public:
  ProgramProcess(const std::string& binary, const std::vector<std::string>& args,
                 const std::string& working_directory, ChildLimits limits = {})
      : capture_(std::make_unique<TempDir>()) {
    std::string out_path = *capture_ / "stdout";
    std::string err_path = *capture_ / "stderr";
    pid_ = fork();
    if (pid_ == 0) {
      if (limits.file_size >= 0) {
        rlimit limit{static_cast<rlim_t>(limits.file_size), static_cast<rlim_t>(limits.file_size)};
        setrlimit(RLIMIT_FSIZE, &limit);
      }
      int out = open(out_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
      int err = open(err_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
      dup2(out, 1);
      dup2(err, 2);
      execInFolder(binary, args, working_directory);
    }
  }
  ProgramProcess(const ProgramProcess&) = delete;
  ProgramProcess& operator=(const ProgramProcess&) = delete;
  ~ProgramProcess() {
    if (!waited_ && pid_ > 0) {
      kill(pid_, SIGKILL);
      wait();
    }
  }

  pid_t pid() const { return pid_; }

  ProgramRun wait() {
    ProgramRun run;
    int wstatus = 0;
    waitpid(pid_, &wstatus, 0);
    waited_ = true;
    run.status = WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : 1000 + WTERMSIG(wstatus);
    run.out = readFile(*capture_ / "stdout");
    run.err = readFile(*capture_ / "stderr");
    return run;
  }

 private:
  std::unique_ptr<TempDir> capture_;
  pid_t pid_ = -1;
  bool waited_ = false;
};

inline ProgramRun runProgram(const std::string& binary, const std::vector<std::string>& args,
                             const std::string& working_directory, ChildLimits limits = {}) {
  return ProgramProcess(binary, args, working_directory, limits).wait();
}

}  // namespace qm::test
