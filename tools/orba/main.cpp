// The program: finds the sub-command and runs it.
#include <algorithm>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>
#include <string>
#include <vector>

#include "tools/orba/command.h"
#include "tools/orba/completion.h"
#include "tools/orba/failure.h"
#include "tools/orba/host/host.h"
#include "tools/orba/interrupt.h"
#include "tools/orba/manual.h"
#include "tools/orba/terminal.h"
#include "tools/orba/wildcard.h"

using namespace orba::tool;

namespace {

// How many letters must be put in, left out, replaced or swapped with the next to make one word of the other.
std::size_t Distance(const std::string& one, const std::string& other) {
  std::vector<std::vector<std::size_t>> steps(one.size() + 1, std::vector<std::size_t>(other.size() + 1));
  for (std::size_t i = 0; i <= one.size(); ++i) {
    for (std::size_t j = 0; j <= other.size(); ++j) {
      if (i == 0 || j == 0) {
        steps[i][j] = i + j;
        continue;
      }
      const std::size_t replaced = steps[i - 1][j - 1] + (one[i - 1] == other[j - 1] ? 0 : 1);
      steps[i][j] = std::min({steps[i - 1][j] + 1, steps[i][j - 1] + 1, replaced});
      const bool swapped = i > 1 && j > 1 && one[i - 1] == other[j - 2] && one[i - 2] == other[j - 1];
      if (swapped) steps[i][j] = std::min(steps[i][j], steps[i - 2][j - 2] + 1);
    }
  }
  return steps[one.size()][other.size()];
}

// The command that was most likely meant; nullptr where none comes close.
const Command* Resembling(const std::string& name) {
  if (name.size() > 20) return nullptr;
  const Command* best = nullptr;
  std::size_t least = name.size() < 4 ? 2 : 3;  // more than may be wrong
  for (const Command* command : Commands()) {
    const bool begun = name.size() > 1 && std::string(command->name).rfind(name, 0) == 0;
    const std::size_t distance = begun ? 0 : Distance(name, command->name);
    if (distance >= least) continue;
    least = distance;
    best = command;
  }
  return best;
}

const Command& FindCommand(const std::string& name) {
  const std::vector<const Command*>& commands = Commands();
  const auto found = std::find_if(commands.begin(), commands.end(), [&](const Command* c) { return c->name == name; });
  if (found != commands.end()) return **found;
  const Command* const meant = Resembling(name);
  throw UsageFailure("", "there is no command \"" + name + "\"" +
                             (meant == nullptr ? "" : "; did you mean \"" + std::string(meant->name) + "\"?"));
}

// Arguments that begin with an option.
int RunWithoutCommand(const std::vector<std::string>& arguments) {
  bool version = false;
  bool manual = false;
  std::string completion;
  Syntax syntax;
  syntax.Flag("-V,--version", &version, "print the version");
  // For the build, which installs what these print.
  syntax.Flag("--man", &manual, "");
  syntax.Choice("--completion", "SHELL", &completion, CompletedShells(), "");
  syntax.Help();
  if (!Parse(syntax, "", arguments)) {
    Print(ProgramHelp());
    return kSuccess;
  }
  if (version) Print(std::string("orba ") + kVersion + "\n");
  if (manual) Print(ManualPage());
  if (!completion.empty()) Print(Completion(completion, syntax));
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
    const int status = RunProgram(Expanded(host::Arguments(argc, argv)));
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
    ReportNoMemory();
    return StatusWithoutMemory();
  } catch (const std::exception& fault) {
    Report(Failure("cannot go on", fault.what(), "this should not happen; please report it, with the command line"));
    return StatusWithoutMemory();
  }
  return kFailed;
}

// Where there is no memory even for an exception.
[[noreturn]] void EndWithoutMemory() {
  if (std::current_exception() != nullptr) std::abort();
  ReportNoMemory();
  std::_Exit(StatusWithoutMemory());
}

}  // namespace

int main(int argc, char** argv) {
  // 1 would mean "repaired".
  for (const char* const name : {"check", "repair"}) {
    if (argc > 1 && std::strcmp(argv[1], name) == 0) SetStatusWithoutMemory(kCouldNotWork);
  }
  std::set_terminate(EndWithoutMemory);
  std::setlocale(LC_CTYPE, "");
  host::SetUpStandardStreams();
  host::CatchSignals();
  try {
    return Guarded(argc, argv);
  } catch (...) {
    ReportNoMemory();  // not even for another message
    return StatusWithoutMemory();
  }
}
