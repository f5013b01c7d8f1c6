#pragma once
// Lets the compiler check printf-style formats. MinGW's GCC checks "printf" against the old
// Windows runtime, which knows no %zu or %lld; the program is built with MinGW's own C99 printf
// (__USE_MINGW_ANSI_STDIO), so its formats are checked as GNU ones there.
#if defined(__MINGW32__)
#define QM_PRINTF_FORMAT(format_index, first_argument) \
  __attribute__((format(gnu_printf, format_index, first_argument)))
#else
#define QM_PRINTF_FORMAT(format_index, first_argument) \
  __attribute__((format(printf, format_index, first_argument)))
#endif
