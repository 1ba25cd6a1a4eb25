// Lets a library that a new GCC compiled run with the libstdc++ of old board images.
//
// The headers of GCC 12 report an impossible length of a std::vector or an allocation through a
// function that libstdc++ has only since GCC 11 (GLIBCXX_3.4.29). This file defines it, so the
// library requires nothing newer than the boards' GLIBCXX_3.4.22. The definition stays hidden
// inside the library, as every symbol does that exports.map does not list, and throws the same
// exception.
//
// tests/package/check_library fails when the headers need one more such function.
#include <new>

#if defined(__GLIBCXX__)  // other standard libraries have no such function, or define it themselves

namespace std {  // NOLINT(cert-dcl58-cpp): it belongs there

// Older headers do not declare it.
[[noreturn]] __attribute__((visibility("hidden"))) void __throw_bad_array_new_length();

void __throw_bad_array_new_length() { throw bad_array_new_length(); }

}  // namespace std

#endif
