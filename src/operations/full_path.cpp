#include "operations/full_path.h"

#include <stdlib.h>
#include <string.h>

#include "base/error.h"
#include "base/name.h"
#include "base/scratch.h"
#include "namespace/directory.h"
#include "namespace/path.h"

namespace orba {

namespace {

struct NodeChain {
  OrbNode** const nodes;
  NodeChain() : nodes(static_cast<OrbNode**>(AllocateZeroed(kMaxLevels * sizeof(OrbNode*)))) {}
  ~NodeChain() { OrbReleaseNodeChain(nodes); }
  NodeChain(const NodeChain&) = delete;
  NodeChain& operator=(const NodeChain&) = delete;
};

// Fills the chain from element 0 up to the root. Sets *top to the root's place.
bool ClimbToRoot(OrbNode** chain, uint32_t* top) {
  const OrbNode* const root = chain[0]->volume->root;
  uint32_t level = 0;
  while (chain[level] != root) {
    if (level + 1 == kMaxLevels) return Fail(ORB_ERROR_PATH_TOO_LONG);
    chain[level + 1] = OrbDirOpenChild(chain[level], "..");
    if (chain[level + 1] == nullptr) return FailIfClear(ORB_ERROR_DAMAGED_RECORD);
    ++level;
  }
  *top = level;
  return true;
}

bool BuildFullPath(char* out, const char* path) {
  const NodeChain chain;
  if (chain.nodes == nullptr) return false;
  OrbNode** const nodes = chain.nodes;
  char name[kNameSize];
  char lastName[kNameSize];
  nodes[0] = OrbWalkPath(lastName, path);
  uint32_t top = 0;
  if (nodes[0] == nullptr || !ClimbToRoot(nodes, &top)) return false;

  strcpy(out, nodes[0]->volume->name);
  uint32_t length = static_cast<uint32_t>(strlen(out));
  out[length++] = ':';
  out[length++] = '/';
  for (; top > 0; --top) {
    if (!OrbDirFindName(name, nodes[top], nodes[top - 1]->record.number)) return FailIfClear(ORB_ERROR_DAMAGED_RECORD);
    const uint32_t start = length;
    length += static_cast<uint32_t>(strlen(name)) + 1;
    if (length > ORB_MAX_PATH) return Fail(ORB_ERROR_PATH_TOO_LONG);
    strcpy(out + start, name);
    out[length - 1] = '/';
  }
  if (length + strlen(lastName) > ORB_MAX_PATH) return Fail(ORB_ERROR_PATH_TOO_LONG);
  OrbNameCopyUpper(out + length, lastName);
  return true;
}

}  // namespace

bool OrbGetFullPathName(char* out, const char* path) {
  if (BuildFullPath(out, path)) return true;
  out[0] = '\0';
  return false;
}

void OrbReleaseNodeChain(OrbNode** chain) {
  if (chain == nullptr) return;
  for (uint32_t level = 0; level < kMaxLevels && chain[level] != nullptr; ++level) OrbNodeRelease(chain[level]);
  free(chain);
}

}  // namespace orba
