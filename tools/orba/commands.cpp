#include "tools/orba/commands.h"

namespace orba::tool {

const std::vector<const Command*>& Commands() {
  static const std::vector<const Command*> commands = {
      &kFormatCommand,  &kInfoCommand,      &kFreeCommand,  &kListCommand,  &kTreeCommand,   &kUsageCommand,
      &kCatCommand,     &kPutCommand,       &kGetCommand,   &kMakeCommand,  &kMoveCommand,   &kCopyCommand,
      &kRemoveCommand,  &kAttributeCommand, &kTouchCommand, &kCheckCommand, &kRepairCommand, &kUndoCommand,
      &kRecoverCommand, &kDumpCommand,      &kMapCommand,
  };
  return commands;
}

Definition Define(const Command& command) {
  Definition definition;
  definition.run = command.define(&definition.syntax);
  definition.syntax.Help();
  return definition;
}

}  // namespace orba::tool
