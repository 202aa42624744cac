#pragma once

#include <string>
#include <string_view>

namespace lumerix::path {

// "/a/b.srt" -> "b.srt"; trailing slashes are ignored ("/a/b/" -> "b").
std::string lastComponent(std::string_view path);
// "/a/b.srt" -> "/a"; "/b.srt" -> "/"; "b.srt" -> "".
std::string parent(std::string_view path);
// Joins with exactly one slash.
std::string append(std::string_view folder, std::string_view name);
// Lower-cased extension without the dot; "" when there is none.
std::string extensionLowercased(std::string_view path);

}  // namespace lumerix::path
