#include "namespace/path.h"

#include <string.h>

#include "base/error.h"
#include "base/name.h"
#include "namespace/current_directory.h"
#include "namespace/directory.h"

namespace orba {

namespace {

constexpr char kSeparator = '/';

const char* SkipSeparators(const char* position) {
  while (*position == kSeparator) ++position;
  return position;
}

// The directory a path starts at, not held; null with the error set. There must be a current directory.
OrbNode* StartOf(const char* volumeName, const char* rest, OrbNode* current) {
  Volume* volume = current->volume;
  if (volumeName[0] != '\0') {
    volume = VolumeFind(volumeName, nullptr);
    if (volume == nullptr) {
      Fail(ORB_ERROR_NOT_MOUNTED);
      return nullptr;
    }
  }
  return *rest != kSeparator && OrbIsCurrentDirVolume(volume) ? current : volume->root;
}

// Goes from a directory to one of its children.
bool Descend(NodeRef* present, const char* name) {
  OrbNode* const child = OrbDirOpenChild(present->node, name);
  if (child == nullptr) return FailIfClear(ORB_ERROR_PATH_NOT_FOUND);
  present->Replace(child);
  return true;
}

// Goes up from a directory that "." or ".." led to, leaving the name that its parent lists it under.
bool AscendToParent(NodeRef* present, char* finalName) {
  finalName[0] = '\0';
  if (present->node == present->node->volume->root) return true;
  const uint16_t number = present->node->record.number;
  if (!Descend(present, "..")) return false;
  return OrbDirFindName(finalName, present->node, number) || FailIfClear(ORB_ERROR_PATH_NOT_FOUND);
}

// Goes down all components but the last, which it leaves in finalName.
bool Walk(NodeRef* present, char* finalName, const char* rest) {
  for (;;) {
    rest = OrbNextPathComponent(finalName, rest);
    if (rest == nullptr) return false;
    if (*rest == '\0') break;
    if (!Descend(present, finalName)) return false;
  }
  if (!IsReservedName(finalName)) return IsDirectory(present->node) || Fail(ORB_ERROR_PATH_NOT_FOUND);
  const bool up = finalName[1] == '.';  // NOLINT(clang-analyzer-core.UndefinedBinaryOperatorResult): "." or ".."
  return (!up || Descend(present, "..")) && AscendToParent(present, finalName);
}

}  // namespace

OrbNode* OrbWalkPath(char* finalName, const char* path) {
  finalName[0] = '\0';
  if (*path == '\0') {
    Fail(ORB_ERROR_PATH_NOT_FOUND);
    return nullptr;
  }
  NodeRef present(OrbGetCurrentDirNode());
  if (present.node == nullptr) {
    Fail(ORB_ERROR_NOT_MOUNTED);
    return nullptr;
  }
  char volumeName[kNameSize];
  const char* const rest = OrbSplitVolumeName(volumeName, path);
  if (rest == nullptr) return nullptr;
  OrbNode* const start = StartOf(volumeName, rest, present.node);
  if (start == nullptr) return nullptr;
  present.Replace(OrbNodeAddRef(start));
  if (Walk(&present, finalName, rest)) return present.Take();
  finalName[0] = '\0';
  return nullptr;
}

OrbNode* OrbResolvePath(const char* path) {
  char name[kNameSize];
  const NodeRef directory(OrbWalkPath(name, path));
  return directory.node != nullptr ? OrbDirOpenChild(directory.node, name) : nullptr;
}

OrbNode* ResolveFile(const char* path) {
  OrbNode* const node = OrbResolvePath(path);
  if (node == nullptr) FailIfClear(ORB_ERROR_FILE_NOT_FOUND);
  return node;
}

OrbNode* ResolveDirectory(const char* path) {
  OrbNode* const node = OrbResolvePath(path);
  if (node == nullptr) FailIfClear(ORB_ERROR_PATH_NOT_FOUND);
  return node;
}

bool EndsInSeparator(const char* path) {
  char last = '\0';
  for (; *path != '\0'; ++path) last = *path;
  return last == kSeparator;
}

const char* OrbSplitVolumeName(char* out, const char* path) {
  out[0] = '\0';
  const char* const colon = strchr(path, ':');
  if (colon == nullptr) return path;
  const size_t length = static_cast<size_t>(colon - path);
  if (length < kNameSize) {
    memcpy(out, path, length);
    out[length] = '\0';
    if (OrbIsValidVolumeName(out)) return colon + 1;
  }
  Fail(ORB_ERROR_INVALID_NAME);
  return nullptr;
}

const char* OrbNextPathComponent(char* out, const char* position) {
  position = SkipSeparators(position);
  uint32_t length = 0;
  while (*position != '\0' && *position != kSeparator) {
    if (length == ORB_MAX_NAME) {
      Fail(ORB_ERROR_INVALID_NAME);
      return nullptr;
    }
    out[length++] = *position++;
  }
  out[length] = '\0';
  return SkipSeparators(position);
}

}  // namespace orba
