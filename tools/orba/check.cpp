// check: what is wrong with a container, for people and for programs.
#include "inspect/check/check.h"

#include <memory>
#include <optional>
#include <utility>

#include "inspect/repair/repair.h"
#include "inspect/view/report.h"
#include "orba.h"
#include "tools/orba/address.h"
#include "tools/orba/command.h"
#include "tools/orba/commands.h"
#include "tools/orba/fsck.h"
#include "tools/orba/interrupt.h"
#include "tools/orba/jobs.h"
#include "tools/orba/json.h"
#include "tools/orba/raw_container.h"
#include "tools/orba/terminal.h"

namespace orba::tool {

namespace {

struct CheckOptions {
  std::vector<std::string> operands;
  bool json = false;
  bool quiet = false;
  std::uint32_t jobs = 0;
};

Failure Unreadable(const std::string& path, const inspect::Report& report) {
  if (report.Count(inspect::Kind::kUnreadable) > 0) {
    return Failure("cannot check all of " + ShellWord(path),
                   "the host could not read it (" + CodeText(ORB_ERROR_READ) + ")",
                   "copy it to another disk and check the copy\nfetch what can be read with: orba recover " +
                       ShellWord(path) + " DIR",
                   ORB_ERROR_READ);
  }
  if (report.Count(inspect::Kind::kContainerShort) > 0) {
    return Failure(
        "cannot check " + ShellWord(path),
        "it is not a container, or all but its first bytes are lost (" + CodeText(ORB_ERROR_DAMAGED_VOLUME) + ")",
        "check the name", ORB_ERROR_DAMAGED_VOLUME);
  }
  return Failure("cannot check " + ShellWord(path),
                 "it is not a container, or its beginning is lost (" + CodeText(ORB_ERROR_DAMAGED_VOLUME) + ")",
                 "look at its first bytes with: orba dump " + ShellWord(path) + " bytes 0", ORB_ERROR_DAMAGED_VOLUME);
}

// What carrying out the plan of a repair would come to.
std::string Prospect(const inspect::Promise& promise) {
  std::string text;
  if (promise.regained > 0 || promise.readable == 0) {
    text = "bring back " + inspect::Counted(promise.regained, "file") + ", " + std::to_string(promise.unnamed) +
           " without a name";
  }
  if (promise.readable > 0) {
    const bool all = promise.kept == promise.readable;
    text += std::string(text.empty() ? "keep " : ", and keep ") + (all ? "" : std::to_string(promise.kept) + " of ") +
            (all && promise.readable > 1 ? "all " : "") + inspect::Counted(promise.readable, "file") +
            " that can be read";
  }
  if (promise.unread > 0) text += "; " + UnreadText(promise);
  if (promise.excused > 0) text += "; " + ExcusedText(promise);
  if (promise.toLost > promise.unnamed) text += "; " + std::to_string(promise.toLost) + " would be under /LOST.FND";
  return "repair would " + text + "\n";
}

// Of one all there is to say, of each of several a line.
void PrintReport(const CheckOptions& options, const std::string& path, const inspect::Report& report) {
  if (options.operands.size() == 1) {
    Print(PaintedReport(ToText(report)));
  } else if (report.readable) {
    Print(ShellWord(path) + ": " + PaintedReport(VerdictText(report) + "\n"));
  }
}

void PrintProspect(const RawContainer& container, inspect::Report report) {
  const auto promise =
      Watched("check", false, [&] { return ForeseeRepair(container.image(), Now(), std::move(report)); });
  if (promise.has_value()) Print(Prospect(*promise));
  Print("repair it with: orba repair " + ShellWord(container.path()) + "\n");
}

constexpr const char* kNotChecked = "not checked";

Outcome OutcomeOf(const inspect::Report& report) {
  if (IsSound(report)) return {kSuccess, "clean"};
  return {kDamageLeft, report.IsClean() ? "marked" : Verdict(report)};
}

inspect::Report CheckThrough(const CheckOptions& options, const RawContainer& container) {
  return Watched("check", options.quiet, [&] { return inspect::Check(container.image()); });
}

Outcome CheckOne(const CheckOptions& options, const std::string& path) {
  CheckInterrupt();
  const RawContainer container(path);
  inspect::Report report = CheckThrough(options, container);
  if (!options.quiet) PrintReport(options, path, report);
  if (!report.readable) throw Unreadable(path, report);
  const Outcome outcome = OutcomeOf(report);
  if (!options.quiet && options.operands.size() == 1 && !IsSound(report)) PrintProspect(container, std::move(report));
  return outcome;
}

Outcome CheckAsJson(const CheckOptions& options, const std::string& path) {
  CheckInterrupt();
  Outcome outcome = {};
  PrintObject("container", path, [&](JsonObject* json) {
    const RawContainer container(path);
    const inspect::Report report = CheckThrough(options, container);
    AddReport(report, json);
    if (!report.readable) throw Unreadable(path, report);
    outcome = OutcomeOf(report);
  });
  return outcome;
}

int RunCheck(const CheckOptions& options) {
  const std::size_t count = options.operands.size();
  const Batch batch = {"check", count, options.jobs, options.quiet, {kCouldNotWork, kNotChecked}};
  const bool asJson = options.json && !options.quiet;
  const std::vector<Outcome> outcomes = RunBatch(batch, [&](std::size_t number) {
    const std::string path = ParseContainer(options.operands[number]);
    return asJson ? CheckAsJson(options, path) : CheckOne(options, path);
  });
  if (count > 1 && !options.json && !options.quiet) {
    Print(Summary(outcomes, {"clean", "marked", "leaks", "interrupted", "damaged", kNotChecked}));
  }
  return WorstStatus(outcomes, {kSuccess, kDamageLeft, kCouldNotWork});
}

Run DefineCheck(Syntax* syntax) {
  auto options = std::make_shared<CheckOptions>();
  syntax->Flag("--json", &options->json, "one JSON object for each container, on a line of its own");
  syntax->Flag("-q,--quiet", &options->quiet, "the exit status alone, also with --json");
  DefineJobs(syntax, &options->jobs);
  syntax->Many("CONTAINER", &options->operands);
  return [options] { return StatusOf(kCouldNotWork, [&] { return RunCheck(*options); }); };
}

}  // namespace

const Command kCheckCommand = {
    "check",
    kRepairGroup,
    "CONTAINER...",
    "look for damage, interrupted updates and leaked space",
    "Reads everything a container says about itself and changes nothing. Each finding comes with its place and with "
    "what it means: damage breaks a rule of the format; interrupted is what an interrupted update left, whose end is "
    "known; a leak is space that nothing refers to, no data is lost by it; a note breaks no rule.\n\n"
    "Of a container that is not clean it tells as well what a repair would keep and bring back.\n\n"
    "Exits with 0 when the container is clean, 4 when there is something to repair (an update mark that is set "
    "counts), 8 when it could not be read or the report not be written. Of several containers, each of which has a "
    "line then, the worst of these counts.",
    "orba check card.orb\n"
    "orba check *.orb  # a line for each, and a summary\n"
    "orba check --json card.orb | jq .verdict\n"
    "orba check -q card.orb || orba repair --undo card.undo card.orb",
    DefineCheck,
};

}  // namespace orba::tool
