// Checks that the libraries built for Windows work there (run under Wine): argtable2 as the
// converter's command line uses it, and threads from the posix-thread runtime linked in
// statically.
#include <argtable2.h>
#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

// One option table per test, freed at the end.
struct JobsTable {
  arg_int* jobs = arg_int0("j", "jobs", "<n>", "number of conversions at once");
  struct arg_end* end = arg_end(4);  // "struct": the function arg_end hides the name
  void* table[2] = {jobs, end};
  ~JobsTable() { arg_freetable(table, 2); }

  int parse(std::vector<std::string> args) {
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(a.data());
    return arg_parse(static_cast<int>(argv.size()), argv.data(), table);
  }
};

TEST(Argtable, ParsesAnIntegerOptionInEitherSpelling) {
  JobsTable t;
  ASSERT_EQ(t.parse({"prog", "--jobs=12"}), 0);
  ASSERT_EQ(t.jobs->count, 1);
  EXPECT_EQ(t.jobs->ival[0], 12);

  JobsTable hexadecimal;
  ASSERT_EQ(hexadecimal.parse({"prog", "-j", "0x10"}), 0);
  EXPECT_EQ(hexadecimal.jobs->ival[0], 16);
}

// The test programs parse many command lines in one process: each parse must start from the
// first argument again (argtable2 resets its getopt with optind = 0).
TEST(Argtable, ReportsAMissingValueAndParsesAgainAfterwards) {
  JobsTable missing;
  EXPECT_EQ(missing.parse({"prog", "--jobs"}), 1);
  EXPECT_EQ(missing.jobs->count, 0);
  ASSERT_EQ(missing.end->count, 1);
  EXPECT_EQ(missing.end->error[0], ARG_EMISSARG);

  JobsTable after;
  ASSERT_EQ(after.parse({"prog", "-j", "3"}), 0);
  EXPECT_EQ(after.jobs->ival[0], 3);
}

TEST(Argtable, RejectsANumberTooLargeForAnInt) {
  JobsTable t;
  EXPECT_EQ(t.parse({"prog", "--jobs=99999999999"}), 1);
  EXPECT_EQ(t.jobs->count, 0);
}

TEST(Runtime, ThreadsShareAMutex) {
  std::mutex mutex;
  long total = 0;
  std::vector<std::thread> workers;
  for (int w = 0; w < 4; ++w) {
    workers.emplace_back([&] {
      for (int i = 0; i < 10000; ++i) {
        std::lock_guard lock(mutex);
        ++total;
      }
    });
  }
  for (auto& t : workers) t.join();
  EXPECT_EQ(total, 40000);
}

}  // namespace
