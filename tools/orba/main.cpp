// The program: finds the sub-command and runs it.
#include <algorithm>
#include <clocale>
#include <string>
#include <vector>

#include "tools/orba/command.h"
#include "tools/orba/failure.h"
#include "tools/orba/host/host.h"
#include "tools/orba/interrupt.h"
#include "tools/orba/manual.h"
#include "tools/orba/terminal.h"

using namespace orba::tool;

namespace {

const Command& FindCommand(const std::string& name) {
  const std::vector<const Command*>& commands = Commands();
  const auto found = std::find_if(commands.begin(), commands.end(), [&](const Command* c) { return c->name == name; });
  if (found == commands.end()) throw UsageFailure("", "there is no command \"" + name + "\"");
  return **found;
}

// Arguments that begin with an option.
int RunWithoutCommand(const std::vector<std::string>& arguments) {
  bool version = false;
  bool manual = false;
  bool completion = false;
  Syntax syntax;
  syntax.Flag("-V,--version", &version, "print the version");
  // For the build, which installs what these print.
  syntax.Flag("--man", &manual, "");
  syntax.Flag("--completion", &completion, "");
  syntax.Help();
  if (!Parse(syntax, "", arguments)) {
    Print(ProgramHelp());
    return kSuccess;
  }
  if (version) Print(std::string("orba ") + kVersion + "\n");
  if (manual) Print(ManualPage());
  if (completion) Print(BashCompletion(syntax));
  return kSuccess;
}

int RunProgram(std::vector<std::string> arguments) {
  if (arguments.empty()) {
    Print(ProgramHelp());
    return kUsage;
  }
  if (arguments[0] == "help") {
    arguments.erase(arguments.begin());
    arguments.emplace_back("--help");
  }
  if (arguments[0].empty() || arguments[0][0] == '-') return RunWithoutCommand(arguments);
  const Command& command = FindCommand(arguments[0]);
  const Definition definition = Define(command);
  arguments.erase(arguments.begin());
  if (Parse(definition.syntax, command.name, arguments)) return definition.run();
  Print(CommandHelp(command));
  return kSuccess;
}

int Guarded(int argc, char** argv) {
  try {
    const int status = RunProgram({argv + 1, argv + argc});
    FlushOutput();
    return status;
  } catch (const UsageFailure& failure) {
    Report(failure);
    return kUsage;
  } catch (const Failure& failure) {
    Report(failure);
  } catch (const OutputClosed&) {
    // Whoever read the output has seen enough.
  } catch (const Interrupt& interrupt) {
    Report("interrupted");
    host::DieOf(interrupt.signal);
  } catch (const std::bad_alloc&) {
    Report("there is not enough memory");
  }
  return kFailed;
}

}  // namespace

int main(int argc, char** argv) {
  std::setlocale(LC_CTYPE, "");
  host::HoldStandardStreams();
  host::CatchSignals();
  try {
    return Guarded(argc, argv);
  } catch (...) {
    return kFailed;  // without memory even for the message
  }
}
