// Releases on the daemon's side: TARGET_ROOT/releases/ID directories, and
// TARGET_ROOT/current, a symbolic link "releases/ID" switched by one rename
// of a link made under TARGET_ROOT/.vqglob-tmp.
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
// Points "current" at releases/id in one rename.
bool switch_current(const std::string &root, const std::string &id);

}  // namespace vqglob

#endif
