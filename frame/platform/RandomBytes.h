// Unpredictable bytes from the kernel, for secrets such as the web server's form token.
#pragma once

#include <cstddef>
#include <string>

namespace platform {

// Fills `size` bytes from the kernel's random source (getrandom, else /dev/urandom);
// false when neither gives them.
bool RandomBytes(void* buffer, std::size_t size);

// `bytes` random bytes as lower-case hexadecimal (twice as many characters); empty when
// the kernel gives none.
std::string RandomHex(std::size_t bytes);

}  // namespace platform
