#include "namespace/current_directory.h"

#include "base/error.h"

namespace orba {

OrbNode* g_pCurrentDir;

bool OrbSetCurrentDirNode(OrbNode* node) {
  if (node != nullptr) {
    if (!OrbNodeIsValid(node)) return Fail(ORB_ERROR_PATH_NOT_FOUND);
    if (!IsDirectory(node)) return Fail(ORB_ERROR_WRONG_KIND);
  }
  OrbNodeAddRef(node);  // before the release: it may be the same node
  OrbNodeRelease(g_pCurrentDir);
  g_pCurrentDir = node;
  return true;
}

OrbNode* OrbGetCurrentDirNode() { return OrbNodeAddRef(g_pCurrentDir); }

bool OrbIsCurrentDirVolume(const Volume* volume) { return g_pCurrentDir != nullptr && g_pCurrentDir->volume == volume; }

bool OrbIsCurrentDirNode(const OrbNode* node) { return node == g_pCurrentDir; }

bool RequireSoleHolder(const OrbNode* node) {
  if (node->references < 2) return true;
  if (OrbIsCurrentDirNode(node)) return Fail(ORB_ERROR_CURRENT_DIRECTORY);
  return Fail(ORB_ERROR_IN_USE);
}

}  // namespace orba
