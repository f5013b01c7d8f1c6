#pragma once
// The helpers that only buy speed, each switchable here to measure what it buys. Switched off,
// the work is done the plain way with the same result.
namespace qm {

struct SpeedHelpers {
  bool page_toucher = true;    // touches a mapped input's pages on a spare processor
  bool page_populator = true;  // faults an output's fresh pages in ahead of its writer
  bool piece_filler = true;    // fills a buffer's next pieces on a spare processor
  bool kept_buffers = true;    // freed buffers, mapped or from the heap, serve the next file
  bool huge_pages = true;      // large buffers ask for huge pages
};

inline constexpr SpeedHelpers kSpeedHelpers{};

}  // namespace qm
