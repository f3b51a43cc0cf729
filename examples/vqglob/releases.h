// Releases on the daemon's side: TARGET_ROOT/releases/ID directories, and
// TARGET_ROOT/current, a link to one made under TARGET_ROOT/.vqglob-tmp and
// renamed into place. On POSIX it is a symbolic link "releases/ID" and the
// switch is one rename. On Windows it holds the absolute name (a symbolic
// link, or a junction where links need a privilege), and the switch removes
// the old link before the rename: for that moment there is no "current".
#ifndef VQGLOB_RELEASES_H
#define VQGLOB_RELEASES_H

#include <string>
#include <vector>

namespace vqglob {

inline constexpr const char *kTempDirName = ".vqglob-tmp";
inline constexpr const char *kReleasesDirName = "releases";
inline constexpr const char *kCurrentName = "current";

// A new release id: UTC time and a sequence number, "YYYYMMDDTHHMMSSZ-NNNN",
// sortable, unique within this process.
std::string new_release_id();
// The release ids under root, sorted (oldest first).
bool list_releases(const std::string &root, std::vector<std::string> &ids);
// The id "current" points at; empty when there is none.
std::string current_release(const std::string &root);
// Whether links can be made under root/.vqglob-tmp (made, read back and
// removed); false with the reason on the stack, asking that releases be
// refused before anything is received, rather than failing at the switch.
bool can_link_current(const std::string &root);
// Points "current" at releases/id (see above for Windows' two steps).
bool switch_current(const std::string &root, const std::string &id);

}  // namespace vqglob

#endif
