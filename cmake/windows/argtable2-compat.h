/* Forced into every argtable2 source file when it is built for Windows
   (scripts/build-windows-deps). */

/* arg_int.c declares its own error code named EOVERFLOW in an enum; MinGW's <errno.h> defines
   EOVERFLOW as a macro, which would turn that enumerator into a number. Including <errno.h>
   first and dropping the macro leaves the file's own name in place. */
#include <errno.h>
#undef EOVERFLOW

/* arg_int.c calls isspace() and toupper() without including their header. */
#include <ctype.h>
