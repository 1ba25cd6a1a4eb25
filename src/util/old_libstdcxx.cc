// Lets a library that a new GCC compiled run with the libstdc++ of old board images.
//
// The headers of GCC 12 report an impossible std::vector or allocator length by a function that
// libstdc++ offers only since GCC 11 (GLIBCXX_3.4.29). Having a definition of our own, which stays
// hidden inside the library like every symbol that is not listed in exports.map, nothing newer than
// the boards' GLIBCXX_3.4.22 is asked for. What is thrown is the same.
//
// Only functions that the headers really pull in stand here; tests/package/check_library tells when
// one more is needed.
#include <new>

namespace std {  // NOLINT(cert-dcl58-cpp): it belongs there

// Older headers do not declare it.
[[noreturn]] __attribute__((visibility("hidden"))) void __throw_bad_array_new_length();

void __throw_bad_array_new_length() { throw bad_array_new_length(); }

}  // namespace std
