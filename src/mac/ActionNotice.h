#pragma once

// How `Lumerix --do ACTION` reaches the running application: a distributed
// notification of this name whose object is the action's name, sent only
// when an application with this bundle identifier runs.
namespace lumerix::mac {

inline constexpr const char* kActionNotice = "app.lumerix.Lumerix.do";
// The application's identifier when the sender runs outside the bundle.
inline constexpr const char* kDefaultBundleId = "app.lumerix.Lumerix";

}  // namespace lumerix::mac
