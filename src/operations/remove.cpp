#include "operations/remove.h"

#include "namespace/directory.h"
#include "nodes/node_store.h"

namespace orba {

bool OrbDeleteNodeAt(OrbNode* parent, const char* name) {
  OrbNode* const removed = OrbDirRemoveEntry(parent, name, true);
  return removed != nullptr && OrbNodeDelete(removed);
}

}  // namespace orba
