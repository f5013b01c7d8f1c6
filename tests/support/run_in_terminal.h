#pragma once
// Runs the built program with a pseudo-terminal as its standard input, output and error, as a
// person at a terminal would, and returns everything it wrote there.
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "run_program.h"

namespace qm::test {

struct TerminalRun {
  int status = -1;  // the exit status, or 1000 + the signal that ended the program
  std::string screen;  // the bytes written to the terminal, standard output and error together
};

inline TerminalRun runInTerminal(const std::string& binary, const std::vector<std::string>& args,
                                 const std::string& working_directory, unsigned short columns = 80) {
  winsize size{};
  size.ws_row = 24;
  size.ws_col = columns;
  int terminal = -1;
  pid_t pid = forkpty(&terminal, nullptr, nullptr, &size);
  if (pid < 0) return {};
  if (pid == 0) {
    // Bytes as the program wrote them: no newline turned into carriage return and newline.
    termios mode{};
    if (tcgetattr(STDOUT_FILENO, &mode) == 0) {
      mode.c_oflag &= ~static_cast<tcflag_t>(OPOST);
      tcsetattr(STDOUT_FILENO, TCSANOW, &mode);
    }
    execInFolder(binary, args, working_directory);
  }
  TerminalRun run;
  char buffer[4096];
  for (;;) {
    ssize_t n = read(terminal, buffer, sizeof buffer);
    if (n > 0) {
      run.screen.append(buffer, static_cast<std::size_t>(n));
    } else if (n < 0 && errno == EINTR) {
      continue;
    } else {
      break;  // EIO once the program has ended and closed its side
    }
  }
  close(terminal);
  int wstatus = 0;
  waitpid(pid, &wstatus, 0);
  run.status = WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : 1000 + WTERMSIG(wstatus);
  return run;
}

}  // namespace qm::test
