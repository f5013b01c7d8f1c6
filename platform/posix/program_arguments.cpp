#include "platform/program_arguments.h"

namespace qm {

std::vector<std::string> programArguments(int argc, char** argv) {
  return std::vector<std::string>(argv, argv + argc);
}

}  // namespace qm
