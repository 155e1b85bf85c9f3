// The text files the tools read (.cube LUTs, session lines, descriptions)
// are UTF-8. Editors on Windows may save UTF-16 instead, which every reader
// would otherwise report as garbage on line 1.
#pragma once

#include <string>
#include <string_view>

namespace calib {

// Empty when a file starting with `start` may be UTF-8; otherwise why not,
// ready to follow "FILE:1: ".
std::string utf16Problem(std::string_view start);

}  // namespace calib
