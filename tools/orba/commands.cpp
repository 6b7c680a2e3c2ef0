#include "tools/orba/commands.h"

#include "tools/orba/patience.h"

namespace orba::tool {

const std::vector<const Command*>& Commands() {
  static const std::vector<const Command*> commands = {
      &kFormatCommand,  &kCreateCommand,   &kCompactCommand, &kInfoCommand,   &kFreeCommand,    &kListCommand,
      &kTreeCommand,    &kUsageCommand,    &kFindCommand,    &kDiffCommand,   &kCatCommand,     &kPutCommand,
      &kGetCommand,     &kManifestCommand, &kVerifyCommand,  &kExportCommand, &kImportCommand,  &kMountCommand,
      &kUnmountCommand, &kMakeCommand,     &kMoveCommand,    &kCopyCommand,   &kRemoveCommand,  &kAttributeCommand,
      &kTouchCommand,   &kCheckCommand,    &kRepairCommand,  &kUndoCommand,   &kRecoverCommand, &kDumpCommand,
      &kMapCommand,
  };
  return commands;
}

Definition Define(const Command& command) {
  Definition definition;
  definition.run = command.define(&definition.syntax);
  definition.syntax.NumberOrBare("--wait", "SECONDS", WaitOption(), {0, kForever - 1}, kForever,
                                 "while another program has the container open, wait for it: for ever, or so long");
  definition.syntax.Help();
  return definition;
}

}  // namespace orba::tool
