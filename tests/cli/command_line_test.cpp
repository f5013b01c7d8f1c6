// The command line as a user meets it: the built program, its output and its exit status.
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/run_program.h"
#include "tests/support/text_shape.h"

namespace qm::test {
namespace {

class CommandLine : public ::testing::Test {
 protected:
  ProgramRun run(const std::vector<std::string>& args) { return runProgram(QM_BINARY, args, dir_.path().string()); }
  TempDir dir_;
};

TEST_F(CommandLine, NoArgumentsPrintsUsage) {
  ProgramRun r = run({});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out.rfind("Usage: quillmend [", 0), 0u) << r.out;
  EXPECT_NE(r.out.find("\n\n  --help"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("  -v, --version                            display tool version and exit\n"), std::string::npos)
      << r.out;
  EXPECT_NE(r.out.find("list of input files/folders, must have common root"), std::string::npos);
  EXPECT_EQ(r.err, "");
}

TEST_F(CommandLine, HelpWinsOverAnUnknownOption) {
  ProgramRun r = run({"--help", "--bogus"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out.rfind("Usage: quillmend", 0), 0u);
}

TEST_F(CommandLine, VersionWinsOverErrors) {
  for (auto args : std::vector<std::vector<std::string>>{{"--version"}, {"-v"}, {"-v", "--bogus"}, {"-v", "-b"}}) {
    ProgramRun r = run(args);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "Version: 2.0.1\n");
    EXPECT_EQ(r.err, "");
  }
}

TEST_F(CommandLine, MissingOptionValueIs130AndSilent) {
  for (auto args : std::vector<std::vector<std::string>>{{"x.MF4", "--buffer"}, {"x.MF4", "-b"}, {"x.MF4", "-O"}}) {
    ProgramRun r = run(args);
    EXPECT_EQ(r.status, 130) << args.back();
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "");
  }
}

TEST_F(CommandLine, UnknownOptionsAndBadNumbersAre131AndSilent) {
  for (auto args : std::vector<std::vector<std::string>>{
           {"--bogus", "x.MF4"}, {"-z", "x.MF4"}, {"-b", "abc", "x.MF4"}, {"--verbosity=7", "x.MF4"},
           {"--verbosity=-1", "x.MF4"}}) {
    ProgramRun r = run(args);
    EXPECT_EQ(r.status, 131) << args[0];
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "");
  }
}

TEST_F(CommandLine, OtherErrorsArePrintedAndAre134) {
  ProgramRun twice = run({"--verbosity=1", "--verbosity=2", "x.MF4"});
  EXPECT_EQ(twice.status, 134);
  EXPECT_EQ(twice.out.rfind("quillmend: ", 0), 0u) << twice.out;

  ProgramRun no_inputs = run({"-d"});
  EXPECT_EQ(no_inputs.status, 134);
  EXPECT_NE(no_inputs.out.find("quillmend: "), std::string::npos);

  ProgramRun no_root = run({"d/a.MF4", "d/sub/b.MF4"});
  EXPECT_EQ(no_root.status, 134);
  EXPECT_EQ(no_root.out, "quillmend: input file(s)/folder(s) do not share a common root directory\n");

  ProgramRun bad_output = run({"-O", "no-such-dir", "a.MF4"});
  EXPECT_EQ(bad_output.status, 134);
  EXPECT_EQ(bad_output.out, "quillmend: invalid output directory: \"no-such-dir\"\n");
}

TEST_F(CommandLine, VerbosityFiveShowsWhatFourShows) {
  // A missing input logs a warning: hidden at the default verbosity, shown from 2 on.
  ProgramRun quiet = run({"missing.MF4"});
  EXPECT_EQ(quiet.status, 1);
  EXPECT_EQ(quiet.err.find(" W "), std::string::npos);
  ProgramRun four = run({"--verbosity=4", "missing.MF4"});
  ProgramRun five = run({"--verbosity=5", "missing.MF4"});
  EXPECT_EQ(four.status, 1);
  EXPECT_EQ(five.status, 1);
  EXPECT_NE(four.err.find(" W Could not find input file/folder missing.MF4\n"), std::string::npos) << four.err;
  // Same lines apart from the time stamps and ids.
  auto messages = [](const std::string& err) {
    return test::replacedAll(err, R"((^|\n)\d\d-\d\d [\d:.]+ +\d+ +\d+ )", "$1");
  };
  EXPECT_EQ(messages(four.err), messages(five.err));
}

TEST_F(CommandLine, DashIIsAcceptedAndDoesNothing) {
  ProgramRun r = run({"-i", "missing.MF4"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, "");
}

}  // namespace
}  // namespace qm::test
