// The records of all sub-commands.
#pragma once

#include "tools/orba/command.h"

namespace orba::tool {

extern const Command kFormatCommand, kInfoCommand, kFreeCommand;                      // container.cpp
extern const Command kListCommand, kTreeCommand, kUsageCommand;                       // list.cpp
extern const Command kFindCommand;                                                    // find.cpp
extern const Command kDiffCommand;                                                    // diff.cpp
extern const Command kCatCommand, kGetCommand;                                        // get.cpp
extern const Command kMountCommand, kUnmountCommand;                                  // mount.cpp
extern const Command kPutCommand;                                                     // put.cpp
extern const Command kMakeCommand, kRemoveCommand, kAttributeCommand, kTouchCommand;  // change.cpp
extern const Command kMoveCommand, kCopyCommand;                                      // move.cpp
extern const Command kCheckCommand;                                                   // check.cpp
extern const Command kRepairCommand, kUndoCommand;                                    // repair.cpp
extern const Command kRecoverCommand;                                                 // recover.cpp
extern const Command kManifestCommand, kVerifyCommand;                                // verify.cpp
extern const Command kExportCommand;                                                  // export.cpp
extern const Command kImportCommand;                                                  // import.cpp
extern const Command kCreateCommand;                                                  // create.cpp
extern const Command kCompactCommand;                                                 // compact.cpp
extern const Command kDumpCommand, kMapCommand;                                       // picture.cpp

}  // namespace orba::tool
