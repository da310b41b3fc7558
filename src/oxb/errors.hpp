// The bus library's error messages: the fixed table, and the message of this thread's last failed
// open, which names the address option at fault.
#pragma once

#include <string>

namespace ryn::oxb {

// Keeps `message` as this thread's text for `code` until the next failure or open.
void set_error_detail(int code, const std::string &message);
void clear_error_detail();

} // namespace ryn::oxb
