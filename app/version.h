#pragma once
namespace qm {
inline constexpr const char* kToolName = "quillmend";
inline constexpr const char* kToolVersion = "2.0.1";
}  // namespace qm
