// The program: takes the command line apart and runs one sub-command.
#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <clocale>
#include <map>
#include <string>
#include <vector>

#include "tools/orba/command.h"
#include "tools/orba/failure.h"
#include "tools/orba/interrupt.h"
#include "tools/orba/manual.h"
#include "tools/orba/terminal.h"

using namespace orba::tool;

namespace {

struct Program {
  CLI::App app;
  std::map<const CLI::App*, Run> runs;
};

void Define(Program* program) {
  CLI::App& app = program->app;
  app.name("orba");
  app.set_help_flag();  // until it is known whether -h stands for sizes that people read
  app.set_version_flag("-V,--version", std::string("orba ") + kVersion);
  // For the build, which installs what these print.
  app.add_flag("--man")->group("");
  app.add_flag("--completion")->group("");
  app.require_subcommand(0, 1);
  for (const Command* command : Commands()) {
    CLI::App* const sub = app.add_subcommand(command->name, command->summary);
    program->runs[sub] = command->define(sub);
    const bool taken = sub->get_option_no_throw("-h") != nullptr;
    sub->set_help_flag(taken ? "--help" : "-h,--help", "print this help");
  }
  app.set_help_flag("-h,--help", "print this help");
  SetHelp(&app);
}

std::string NoCommand(const std::string& name) { return "there is no command \"" + name + "\""; }

bool IsCommand(const std::string& name) {
  const std::vector<const Command*>& commands = Commands();
  return std::any_of(commands.begin(), commands.end(), [&](const Command* command) { return command->name == name; });
}

// The parser takes the arguments from the back.
std::vector<std::string> Arguments(int argc, char** argv) {
  std::vector<std::string> arguments(argv + 1, argv + argc);
  if (!arguments.empty() && arguments[0] == "help") {
    arguments.erase(arguments.begin());
    if (!arguments.empty() && !IsCommand(arguments[0])) throw UsageFailure("", NoCommand(arguments[0]));
    arguments.emplace_back("--help");
  }
  const bool named = !arguments.empty() && !arguments[0].empty() && arguments[0][0] != '-';
  if (named && !IsCommand(arguments[0])) throw UsageFailure("", NoCommand(arguments[0]));
  for (std::string& argument : arguments) {
    if (argument.empty()) throw UsageFailure("", "an argument is empty");
    // The parser would take a text in brackets for a list.
    if (argument.front() == '[' && argument.back() == ']') argument = "./" + argument;
  }
  return {arguments.rbegin(), arguments.rend()};
}

int RunProgram(int argc, char** argv) {
  Program program;
  Define(&program);
  CLI::App& app = program.app;
  try {
    app.parse(Arguments(argc, argv));
  } catch (const CLI::CallForHelp&) {
    Print(app.help());
    return kSuccess;
  } catch (const CLI::CallForVersion& version) {
    Print(std::string(version.what()) + "\n");
    return kSuccess;
  } catch (const CLI::ParseError& error) {
    const std::vector<CLI::App*> subs = app.get_subcommands();
    throw UsageFailure(subs.empty() ? "" : subs[0]->get_name(), error.what());
  }
  if (app.count("--man") > 0) Print(ManualPage(app));
  if (app.count("--completion") > 0) Print(BashCompletion(app));
  for (const CLI::App* sub : app.get_subcommands()) return program.runs.at(sub)();
  if (argc == 1) Print(app.help());
  return argc == 1 ? kUsage : kSuccess;
}

int Guarded(int argc, char** argv) {
  try {
    const int status = RunProgram(argc, argv);
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
    DieOf(interrupt);
  } catch (const std::bad_alloc&) {
    Report("there is not enough memory");
  }
  return kFailed;
}

}  // namespace

int main(int argc, char** argv) {
  std::setlocale(LC_CTYPE, "");
  HoldStandardStreams();
  CatchInterrupts();
  try {
    return Guarded(argc, argv);
  } catch (...) {
    return kFailed;  // without memory even for the message
  }
}
