#include "gtk/DropPaths.h"

#include <glib.h>

namespace lumerix::gtk {

std::vector<std::string> localPathsFromUriList(const std::string& uriList) {
  std::vector<std::string> paths;
  gchar** uris = g_uri_list_extract_uris(uriList.c_str());
  for (gchar** uri = uris; uri && *uri; ++uri) {
    gchar* hostname = nullptr;
    if (gchar* path = g_filename_from_uri(*uri, &hostname, nullptr)) {
      // file://otherhost/... names a file on another machine.
      if (!hostname || g_strcmp0(hostname, "localhost") == 0) paths.emplace_back(path);
      g_free(path);
    }
    g_free(hostname);
  }
  g_strfreev(uris);
  return paths;
}

}  // namespace lumerix::gtk
