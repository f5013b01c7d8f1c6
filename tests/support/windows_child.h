#pragma once
// Runs one test of the running test program in a child process, for what a test cannot do in
// its own process on Windows: start with another command line, or receive console events that
// must reach no other program.
#ifdef _WIN32
#include <windows.h>

#include <filesystem>
#include <string>
#include <string_view>

namespace qm::test {

// A fresh folder the parent and its children share, named in the environment the children
// inherit; removed with what it holds when the parent's test ends.
class SharedFolder {
 public:
  SharedFolder() {
    path_ = std::filesystem::temp_directory_path() / ("qm-test-" + std::to_string(GetCurrentProcessId()));
    std::filesystem::remove_all(path_);
    std::filesystem::create_directories(path_);
    SetEnvironmentVariableW(kVariable, path_.c_str());
  }
  ~SharedFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  SharedFolder(const SharedFolder&) = delete;
  SharedFolder& operator=(const SharedFolder&) = delete;

  const std::filesystem::path& path() const { return path_; }

  // In a child: the parent's folder, as UTF-8 with "/" between names.
  static std::string inChild() {
    wchar_t path[MAX_PATH];
    const DWORD length = GetEnvironmentVariableW(kVariable, path, MAX_PATH);
    if (length == 0 || length >= MAX_PATH) return {};
    const std::u8string utf8 = std::filesystem::path(path).generic_u8string();
    return std::string(utf8.begin(), utf8.end());
  }

 private:
  static constexpr const wchar_t* kVariable = L"QM_TEST_SHARED_FOLDER";
  std::filesystem::path path_;
};

// The exit status of a child that could not send itself a console event (Wine cannot).
constexpr DWORD kNoConsoleEvents = 77;

// The child's exit status, or ~0 when it could not be run. `test_name` is usually a DISABLED_
// test, run only this way; `arguments` follow the test program's own options. With
// `own_console`, the child gets a hidden console of its own. The texts are views: a std::wstring
// made of an empty literal makes GCC 12 warn of a copy out of bounds.
inline DWORD runTestInChild(std::wstring_view test_name, std::wstring_view arguments, bool own_console) {
  wchar_t self[MAX_PATH];
  if (GetModuleFileNameW(nullptr, self, MAX_PATH) == 0) return ~DWORD{0};
  std::wstring command = L"\"" + std::wstring(self) + L"\" --gtest_also_run_disabled_tests --gtest_filter=";
  command.append(test_name).append(L" ").append(arguments);
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESHOWWINDOW;
  startup.wShowWindow = SW_HIDE;
  PROCESS_INFORMATION child{};
  if (!CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, own_console ? CREATE_NEW_CONSOLE : 0,
                      nullptr, nullptr, &startup, &child)) {
    return ~DWORD{0};
  }
  WaitForSingleObject(child.hProcess, 60'000);
  DWORD status = ~DWORD{0};
  if (!GetExitCodeProcess(child.hProcess, &status) || status == STILL_ACTIVE) {
    TerminateProcess(child.hProcess, 1);
    status = ~DWORD{0};
  }
  CloseHandle(child.hThread);
  CloseHandle(child.hProcess);
  return status;
}

// In a child with a console of its own: Ctrl-Break as the keyboard sends it, to this process
// alone. Ends the child with kNoConsoleEvents where the system cannot.
inline void sendCtrlBreakToThisProcess() {
  if (!GenerateConsoleCtrlEvent(CTRL_BREAK_EVENT, 0)) ExitProcess(kNoConsoleEvents);
}

}  // namespace qm::test
#endif
