#include "platform/terminal.h"

#include <gtest/gtest.h>

#include <string>

#ifdef _WIN32
#include <windows.h>
#else
#include <unistd.h>
#endif

namespace qm {
namespace {

// Text of one to four bytes a character, and a byte that is no UTF-8 at all (a file name may
// hold one): a file or a pipe gets it as it is.
std::string mixedText() {
  std::string text = "log: caf\xe9 ";
  for (int i = 0; i < 300; ++i) text += "\xc3\xbc";          // ü
  for (int i = 0; i < 200; ++i) text += "\xe6\x97\xa5";      // 日
  for (int i = 0; i < 100; ++i) text += "\xf0\x9d\x84\x9e";  // a musical symbol, beyond the first plane
  text += "\n";
  return text;
}

// The two ends of a pipe: what standard error is when a script reads the log.
class Pipe {
 public:
  Pipe() {
#ifdef _WIN32
    HANDLE read_end = nullptr, write_end = nullptr;
    if (CreatePipe(&read_end, &write_end, nullptr, 1 << 20)) {
      read_ = reinterpret_cast<std::intptr_t>(read_end);
      write_ = reinterpret_cast<std::intptr_t>(write_end);
    }
#else
    int ends[2];
    if (::pipe(ends) == 0) {
      read_ = ends[0];
      write_ = ends[1];
    }
#endif
  }
  ~Pipe() {
#ifdef _WIN32
    CloseHandle(reinterpret_cast<HANDLE>(read_));
    CloseHandle(reinterpret_cast<HANDLE>(write_));
#else
    ::close(static_cast<int>(read_));
    ::close(static_cast<int>(write_));
#endif
  }
  bool open() const { return read_ != -1; }
  OutputHandle output() const { return OutputHandle{write_}; }

  std::string read(std::size_t size) const {
    std::string bytes(size, '\0');
    std::size_t got = 0;
    while (got < size) {
#ifdef _WIN32
      DWORD count = 0;
      if (!ReadFile(reinterpret_cast<HANDLE>(read_), bytes.data() + got, static_cast<DWORD>(size - got), &count,
                    nullptr) || count == 0) {
        break;
      }
#else
      ssize_t count = ::read(static_cast<int>(read_), bytes.data() + got, size - got);
      if (count <= 0) break;
#endif
      got += static_cast<std::size_t>(count);
    }
    bytes.resize(got);
    return bytes;
  }

 private:
  std::intptr_t read_ = -1;
  std::intptr_t write_ = -1;
};

TEST(Terminal, APipeIsNoTerminalAndTakesTheBytesUnchanged) {
  Pipe pipe;
  ASSERT_TRUE(pipe.open());
  EXPECT_FALSE(isTerminal(pipe.output()));
  EXPECT_EQ(terminalColumns(pipe.output()), 0);
  const std::string text = mixedText();
  EXPECT_EQ(writeOnce(pipe.output(), text.data(), text.size()), static_cast<std::ptrdiff_t>(text.size()));
  EXPECT_EQ(pipe.read(text.size()), text);
  EXPECT_TRUE(writeAll(pipe.output(), text.data(), text.size()));
  EXPECT_EQ(pipe.read(text.size()), text);
}

#ifdef _WIN32

// A screen buffer of the console the tests run in, not shown: what is written to it can be read
// back cell by cell.
class WindowsConsole : public ::testing::Test {
 protected:
  void SetUp() override {
    buffer_ = CreateConsoleScreenBuffer(GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                        CONSOLE_TEXTMODE_BUFFER, nullptr);
    if (buffer_ == INVALID_HANDLE_VALUE) GTEST_SKIP() << "the tests run without a console";
    SetConsoleScreenBufferSize(buffer_, COORD{100, 100});
  }
  void TearDown() override {
    if (buffer_ != INVALID_HANDLE_VALUE) CloseHandle(buffer_);
  }
  OutputHandle output() const { return OutputHandle{reinterpret_cast<std::intptr_t>(buffer_)}; }

  std::wstring readBack(std::size_t cells) const {
    std::wstring text(cells, L'\0');
    DWORD count = 0;
    ReadConsoleOutputCharacterW(buffer_, text.data(), static_cast<DWORD>(cells), COORD{0, 0}, &count);
    text.resize(count);
    return text;
  }

  HANDLE buffer_ = INVALID_HANDLE_VALUE;
};

// Long texts go to a console in pieces (of a kilobyte); with one to three ASCII bytes ahead, a
// piece's end falls inside a two- or three-byte character unless it is cut with care.
TEST_F(WindowsConsole, ShowsUtf8AsTheCharactersItStandsFor) {
  for (int ahead = 1; ahead <= 3; ++ahead) {
    std::string text(static_cast<std::size_t>(ahead), 'a');
    std::wstring expected(static_cast<std::size_t>(ahead), L'a');
    for (int i = 0; i < 300; ++i) text += "\xc3\xbc";  // ü
    for (int i = 0; i < 400; ++i) text += "\xe2\x82\xac";  // €
    expected += std::wstring(300, L'\u00fc') + std::wstring(400, L'\u20ac');
    ASSERT_TRUE(SetConsoleCursorPosition(buffer_, COORD{0, 0}));
    ASSERT_TRUE(writeAll(output(), text.data(), text.size()));
    EXPECT_EQ(readBack(expected.size()), expected) << ahead << " bytes ahead";
  }
}

TEST_F(WindowsConsole, IsATerminalWithTheWidthOfItsWindow) {
  EXPECT_TRUE(isTerminal(output()));
  DWORD mode = 0;
  ASSERT_TRUE(GetConsoleMode(buffer_, &mode));
  EXPECT_NE(mode & ENABLE_VIRTUAL_TERMINAL_PROCESSING, 0u) << "the status line's control sequences";
  CONSOLE_SCREEN_BUFFER_INFO info{};
  ASSERT_TRUE(GetConsoleScreenBufferInfo(buffer_, &info));
  EXPECT_EQ(terminalColumns(output()), info.srWindow.Right - info.srWindow.Left + 1);
}

#endif

}  // namespace
}  // namespace qm
