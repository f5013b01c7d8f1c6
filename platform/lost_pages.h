#pragma once
// Pages of a mapped file can go missing: when another program shortens the file while it is
// mapped, the next access past its new end faults, which no read can report. A handler may
// put zero pages in their place, after which the access goes on and reads zeros.
#include <cstdint>

namespace qm {

// Called on the faulting thread, inside the fault, with the address accessed; it may only touch
// atomics and call replaceLostPages. True once it replaced the pages, so that the access goes
// on; false lets the fault end the process as it would have without a handler.
using LostPagesHandler = bool (*)(std::uintptr_t address);

// Sets the process's handler for lost pages of mapped files; once, before the first mapping
// that needs it.
void handleLostPages(LostPagesHandler handler);

// Puts zero-filled read-only pages in place of the mapped pages from the one that holds
// `address` up to `end`. For the handler; false when the system refuses.
bool replaceLostPages(std::uintptr_t address, std::uintptr_t end);

}  // namespace qm
