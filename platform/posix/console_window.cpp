#include "platform/console_window.h"

namespace qm {

bool ownsConsoleWindowAlone() { return false; }

void waitForEnterToClose() {}

}  // namespace qm
