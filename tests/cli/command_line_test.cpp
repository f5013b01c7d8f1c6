// The command line as a user meets it: the built program, its output and its exit status.
#include <gtest/gtest.h>

#include "tests/cli/program_folder.h"

namespace qm::test {
namespace {

using Args = std::vector<std::string>;
using CommandLine = ProgramFolder;

TEST_F(CommandLine, NoArgumentsOrHelpPrintUsageEvenBesideAnUnknownOption) {
  for (const Args& args : {Args{}, Args{"--help", "--bogus"}}) {
    ProgramRun r = run(args);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out.rfind("Usage: quillmend [", 0), 0u) << r.out;
    EXPECT_NE(r.out.find("\n\n  --help"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("  -v, --version                            display tool version and exit\n"), std::string::npos)
        << r.out;
    EXPECT_NE(r.out.find("list of input files/folders, must have common root"), std::string::npos);
    EXPECT_NE(r.out.find("--salvage"), std::string::npos);
    EXPECT_NE(r.out.find("recover the records behind damaged stretches of data"), std::string::npos);
    EXPECT_EQ(r.err, "");
  }
}

TEST_F(CommandLine, VersionWinsOverErrors) {
  for (const Args& args : {Args{"--version"}, Args{"-v"}, Args{"-v", "--bogus"}, Args{"-v", "-b"}}) {
    ProgramRun r = run(args);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "Version: 2.0.1\n");
    EXPECT_EQ(r.err, "");
  }
}

// A missing option value is 130, an unknown option or a bad value 131; neither prints anything
// nor converts anything.
TEST_F(CommandLine, MisuseIs130Or131AndSilent) {
  put("a.MF4", "not converted");
  const struct {
    Args args;
    int status;
  } cases[] = {
      {{"a.MF4", "--buffer"}, 130},  {{"a.MF4", "-b"}, 130},           {{"a.MF4", "-O"}, 130},
      {{"a.MF4", "--jobs"}, 130},    {{"--bogus", "a.MF4"}, 131},      {{"-z", "a.MF4"}, 131},
      {{"-b", "abc", "a.MF4"}, 131}, {{"--verbosity=7", "a.MF4"}, 131}, {{"--verbosity=-1", "a.MF4"}, 131},
      {{"-j", "-1", "a.MF4"}, 131},  {{"--jobs=abc", "a.MF4"}, 131},   {{"--jobs=2x", "a.MF4"}, 131},
      {{"--shard=4/4", "a.MF4"}, 131}, {{"--shard=-1/2", "a.MF4"}, 131}, {{"--shard=1/0", "a.MF4"}, 131},
      {{"--shard=abc", "a.MF4"}, 131}, {{"--shard=1/2/3", "a.MF4"}, 131},
  };
  for (const auto& c : cases) {
    ProgramRun r = run(c.args);
    EXPECT_EQ(r.status, c.status) << c.args[0] << " " << c.args[1];
    EXPECT_EQ(r.out + r.err, "") << c.args[0] << " " << c.args[1];
  }
  EXPECT_FALSE(exists("a_fin.MF4"));
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
  EXPECT_EQ(withoutLogPrefixes(four.err), withoutLogPrefixes(five.err));  // apart from times and ids
}

TEST_F(CommandLine, DashIIsAcceptedAndDoesNothing) {
  ProgramRun r = run({"-i", "missing.MF4"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, "");
}

}  // namespace
}  // namespace qm::test
