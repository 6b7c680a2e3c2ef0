// Manifests: the SHA-256 of each file of a tree in the format of sha256sum, which takes lines that begin with "#" for
// comments. Stands on failure and host_file.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "orba.h"

namespace orba::tool {

struct ManifestEntry {
  std::string name;    // from the directory of which it tells, as the manifest has it
  std::string digest;  // 64 digits of lower case
  std::optional<std::uint64_t> size;
};

// A comment with size and time, and the line for sha256sum.
std::string ManifestText(const ManifestEntry& entry, const OrbTime& time);

// The entries of a manifest, or of what sha256sum has written; "-" is standard input. Throws a Failure on any other
// text.
std::vector<ManifestEntry> ReadManifest(const std::string& path);

}  // namespace orba::tool
