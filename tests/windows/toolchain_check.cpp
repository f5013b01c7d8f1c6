// A small program built like the Windows converter will be (cross-compiled, static, argtable2
// from our own build): it parses options the way the converter does and prints what it found,
// the syntax and glossary, or argtable2's errors. Its ctest cases check the output under Wine.
#include <argtable2.h>

#include <cstdio>

int main(int argc, char** argv) {
  arg_int* jobs = arg_int0("j", "jobs", "<n>", "number of conversions at once");
  arg_file* output = arg_file0("O", "output-directory", "<dir>", "where converted files go");
  arg_lit* help = arg_lit0("h", "help", "print this help");
  arg_file* inputs = arg_filen(nullptr, nullptr, "<file>", 0, 16, "files to convert");
  // The function arg_end hides the struct of the same name.
  struct arg_end* end = arg_end(8);
  void* table[] = {jobs, output, help, inputs, end};
  if (arg_nullcheck(table) != 0) {
    std::puts("out of memory");
    return 2;
  }

  int errors = arg_parse(argc, argv, table);
  int status = 0;
  if (errors > 0) {
    arg_print_errors(stdout, end, "toolchain_check");
    std::putchar('\n');
    status = 1;
  } else if (help->count > 0) {
    std::fputs("usage: toolchain_check", stdout);
    arg_print_syntax(stdout, table, "\n");
    arg_print_glossary(stdout, table, "  %-28s %s\n");
  } else {
    std::printf("jobs=%d output=%s inputs=%d\n", jobs->count > 0 ? jobs->ival[0] : 0,
                output->count > 0 ? output->filename[0] : "-", inputs->count);
    for (int i = 0; i < inputs->count; ++i) {
      // argtable2 splits off the extension; on Windows it must know backslashes as separators.
      std::printf("input %s base=%s extension=%s\n", inputs->filename[i], inputs->basename[i],
                  inputs->extension[i]);
    }
  }
  arg_freetable(table, sizeof table / sizeof table[0]);
  return status;
}
