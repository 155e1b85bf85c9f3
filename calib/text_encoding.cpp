// Recognising UTF-16 text by its byte-order mark, or by the zero byte every
// ASCII character then carries.
#include <calib/text_encoding.h>

namespace calib {

std::string utf16Problem(std::string_view start) {
  const std::string fix = "; save it as UTF-8";
  if (start.starts_with("\xFF\xFE") || start.starts_with("\xFE\xFF"))
    return "the file is UTF-16 (it starts with a byte-order mark)" + fix;
  // Two ASCII characters without a mark: little-endian "T\0I\0", big-endian "\0T\0I".
  if (start.size() >= 4 && ((start[0] != 0 && start[1] == 0 && start[2] != 0 && start[3] == 0) ||
                            (start[0] == 0 && start[1] != 0 && start[2] == 0 && start[3] != 0)))
    return "the file is UTF-16 (every other byte is zero)" + fix;
  return {};
}

}  // namespace calib
