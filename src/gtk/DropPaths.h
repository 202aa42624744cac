#pragma once

#include <string>
#include <vector>

namespace lumerix::gtk {

// The local files named by a text/uri-list drag, in its order. Comments,
// blank lines and anything that is not a local file (http:, a remote host)
// are left out; percent-escapes are undone. Needs no display.
std::vector<std::string> localPathsFromUriList(const std::string& uriList);

}  // namespace lumerix::gtk
