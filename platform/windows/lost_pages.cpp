#include "platform/lost_pages.h"

namespace qm {

// Inputs are not mapped on Windows (mapWholeFile), and a mapped file cannot be shortened there
// anyway: no pages are ever lost.
void handleLostPages(LostPagesHandler) {}

bool replaceLostPages(std::uintptr_t, std::uintptr_t) { return false; }

}  // namespace qm
