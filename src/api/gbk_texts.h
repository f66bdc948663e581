// Message suffixes in Chinese, written as GBK bytes: the code page of the
// consoles the host programs run in. Kept as byte escapes so the output is
// the same whatever the source or execution character set.
#pragma once

namespace kestrel::meridian {

/// " 路径不存在" ("path does not exist"), printed after a missing path.
inline constexpr char kGbkPathMissing[] = " \xC2\xB7\xBE\xB6\xB2\xBB\xB4\xE6\xD4\xDA";

/// " 不正确" ("incorrect"), printed after a file whose content is wrong.
inline constexpr char kGbkIncorrect[] = " \xB2\xBB\xD5\xFD\xC8\xB7";

}  // namespace kestrel::meridian
