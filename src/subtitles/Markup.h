#pragma once

#include <string>

namespace lumerix::markup {

// Removes every match of  <[^>]+>  left to right in one pass, in place:
// what a removal joins is not looked at again, and "<>" is text.
void removeHtmlTags(std::string& s);

// Removes every match of  \{[^}]*\}  (override blocks such as {\an8}), in place.
void removeOverrideBlocks(std::string& s);

}  // namespace lumerix::markup
