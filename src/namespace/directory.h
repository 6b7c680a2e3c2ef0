// Layer: directories. A directory is a node whose data is a dense array of 32-byte entries (OrbDirEntry, layout.h), one
// for each name. Stands on nodes, the block map, the free chain and the name rules.
//
// Invariants:
//   D1  entry 0 is ".", entry 1 is ".."; neither is ever renamed or removed
//   D2  the node's size is 32 x the number of entries; there are no holes. The entry after the last one, where it lies
//       in the same block, has node number 0
//   D3  new entries are appended; removal moves the last entry into the hole (Q10). The order means nothing
//   D4  a directory has ceil(size / block size) blocks and at least one; a block emptied by a removal is freed
// A scan looks at every block to its end and stops at the first entry with node number 0 (Q23): the size tells how many
// blocks there are, not where in the last one the names end. A directory with no blocks, or larger than any volume can
// fill, is damaged.
//
// All operations take a directory the caller holds and fail with ORB_ERROR_PATH_NOT_FOUND where it is not a valid node
// or not a directory, ORB_ERROR_OUT_OF_MEMORY where the block buffer cannot be had, ORB_ERROR_DAMAGED_RECORD where it
// is damaged, and with the codes of the reads and writes below.
#pragma once

#include <stdint.h>

#include "nodes/node.h"

namespace orba {

// A place in a directory, for going through its entries in order.
struct DirCursor {
  const OrbNode* directory;
  OrbDirEntry* entries;  // room for one block
  uint32_t index;        // of the entry to look at, counted from 0
  uint32_t block;        // the block that `entries` holds, 0 before the first
};

// Reads the block at the cursor and returns the entry there. Null at the end of the directory, with no error set, or
// where the read failed.
OrbDirEntry* OrbDirEntryAt(DirCursor* cursor);

// Moves the cursor from an entry, which it returned last, to the next and returns that. Reads only at the start of a
// block. Null as above.
OrbDirEntry* OrbDirEntryAfter(DirCursor* cursor, OrbDirEntry* entry);

// Returns the node number that a name stands for, "." and ".." included; 0 with no error set where the name is absent,
// 0 with the error set where it could not be looked up.
uint16_t OrbDirLookup(OrbNode* directory, const char* name);

// Returns the node a name stands for, held; an empty name is the directory itself. Null with no error set where the
// name is absent.
OrbNode* OrbDirOpenChild(OrbNode* directory, const char* name);

// True where a name is legal and free: ORB_ERROR_INVALID_NAME, ORB_ERROR_FILE_EXISTS, a lookup's own code.
bool OrbDirRequireNewName(OrbNode* directory, const char* name);

// Copies the stored name of a node's entry ("." and ".." are skipped) into out[kNameSize]. Where there is none:
// false, an empty name, and no error set.
bool OrbDirFindName(char* out, OrbNode* directory, uint16_t number);

// Appends an entry and stamps the directory.
//   check   first: ORB_ERROR_INVALID_NAME, ORB_ERROR_FILE_EXISTS. Without it the caller has done both.
//   writes  1. the last block with the entry, or a new block holding it (then its map entry)   2. the directory's node:
//           the commit point
//   fails   before 2: nothing refers to the entry. In 2: the size in memory goes back. In a block that was there
//           before, the entry then lies past the size, where it is found but cannot be removed (Q23), until the next
//           one takes its place.
bool OrbDirAddEntry(OrbNode* directory, const char* name, uint16_t number, bool check);

// Renames an entry in place: one block write, and nothing else (Q8).
//   check   first: ORB_ERROR_INVALID_NAME (new name illegal, old name "." or ".."), ORB_ERROR_FILE_EXISTS (new name)
//   fails   ORB_ERROR_FILE_NOT_FOUND: no such old name
bool OrbDirRenameEntry(OrbNode* directory, const char* newName, const char* oldName, bool check);

// Removes an entry and returns the node it referred to, held, for the caller to delete or to keep.
//   requireEmpty  a directory that still holds names fails with ORB_ERROR_NOT_EMPTY
//   fails   ORB_ERROR_INVALID_NAME ("." or ".."), ORB_ERROR_FILE_NOT_FOUND, ORB_ERROR_CURRENT_DIRECTORY or
//           ORB_ERROR_IN_USE (somebody else holds the node), ORB_ERROR_DAMAGED_RECORD (an entry past the size): nothing
//           changed. Null; no reference is kept.
//   writes  1. the hole's block, where the hole is not in the last block   2. the last block, or, where it is empty
//           now, its map entry and its way into the free chain   3. the directory's node: the commit point
//   A stop between 1 and 2 leaves the moved entry twice; between 2 and 3 a size that is one entry too large, the last
//   block possibly freed already (Q24). Where freeing it fails, 3 is still done: the directory must not go on referring
//   to it.
OrbNode* OrbDirRemoveEntry(OrbNode* directory, const char* name, bool requireEmpty);

// True where there is nothing but "." and ".."; false, with no error set, where there is something.
bool OrbDirIsEmpty(OrbNode* directory);

// Points ".." at another parent: one block write. The time stamp does not change.
bool OrbDirSetParent(OrbNode* directory, uint16_t parent);

// Fills one entry, in disk order, with everything behind the name zero.
void MakeDirEntry(OrbDirEntry* entry, uint16_t number, const char* name);

// Copies an entry's name: at most 29 characters, and a terminator whatever the disk holds.
void CopyEntryName(char* out, const OrbDirEntry* entry);

// An entry's node number in host order.
uint16_t EntryNode(const OrbDirEntry* entry);

// False, with ORB_ERROR_DAMAGED_RECORD set, for a directory size that no healthy volume has: 0, or more than two
// entries for each node number there can be. It bounds every scan.
bool IsDirSizeSane(const OrbNode* directory);

}  // namespace orba
