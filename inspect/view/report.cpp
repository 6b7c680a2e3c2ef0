#include "inspect/view/report.h"

#include <algorithm>

namespace orba::inspect {

namespace {

using std::to_string;

std::string PlaceText(const Finding& finding) {
  std::string text;
  const auto add = [&text](const std::string& part) { text += (text.empty() ? "" : ", ") + part; };
  if (!finding.path.empty()) add(finding.path);
  if (finding.node != 0 && finding.path.find("(node ") != 0) add("node " + to_string(finding.node));
  if (finding.block != 0) add("block " + to_string(finding.block));
  if (finding.offset != kNoOffset) add("byte " + to_string(finding.offset));
  return text;
}

// "C6, D2" as a list.
std::string RulesJson(const std::string& rules) {
  JsonArray json;
  for (std::size_t at = 0; at < rules.size();) {
    const std::size_t end = std::min(rules.find(", ", at), rules.size());
    json.Add(JsonText(rules.substr(at, end - at)));
    at = end + 2;
  }
  return json.Done();
}

std::string FindingJson(const Finding& finding) {
  const KindInfo& info = AllKinds()[static_cast<std::size_t>(finding.kind)];
  JsonObject json;
  json.Text("severity", Name(info.severity)).Text("kind", info.name).Json("rules", RulesJson(info.rules));
  if (finding.node != 0) json.Number("node", finding.node);
  if (!finding.path.empty()) json.Text("path", finding.path);
  if (finding.block != 0) json.Number("block", finding.block);
  if (finding.offset != kNoOffset) json.Number("offset", finding.offset);
  return json.Number("count", finding.count).Text("text", Sentence(finding)).Done();
}

std::uint64_t All(const Report& report) {
  std::uint64_t sum = 0;
  for (const std::uint64_t count : report.counts) sum += count;
  return sum;
}

}  // namespace

const char* Verdict(const Report& report) {
  switch (report.Worst()) {
    case Severity::kNote:
      return "clean";
    case Severity::kLeak:
      return "leaks";
    case Severity::kInterrupted:
      return "interrupted";
    case Severity::kDamage:
      return "damaged";
  }
  return "damaged";
}

std::string VerdictText(const Report& report) {
  std::string text = std::string(Verdict(report)) + (report.marked ? ", marked as being updated" : "");
  const char* separator = ": ";
  for (const Severity severity : kSeverities) {
    text += separator + (Name(severity) + (" " + to_string(report.Count(severity))));
    separator = ", ";
  }
  return text;
}

std::string ToText(const Report& report) {
  std::string text;
  for (const Finding& finding : report.findings) {
    std::string severity = Name(SeverityOf(finding.kind));
    severity.resize(12, ' ');
    const std::string place = PlaceText(finding);
    text += severity + Name(finding.kind) + (place.empty() ? "" : " at ") + place + ": " + Sentence(finding) + "\n";
  }
  const std::uint64_t unlisted = All(report) - report.findings.size();
  if (unlisted > 0) text += "and " + to_string(unlisted) + " more\n";
  const Totals& totals = report.totals;
  if (report.model.geometry.known()) {
    text += Counted(totals.files, "file") + " with " + Counted(totals.fileBytes, "byte") + ", " +
            Counted(totals.directories, "directory", "directories") + ", " + Counted(totals.freeNodes, "free node") +
            "; " + Counted(report.model.geometry.blocks, "block") + " of " +
            to_string(report.model.geometry.blockSize) + " bytes, " + to_string(totals.freeBlocks) + " free, " +
            to_string(totals.leakedBlocks) + " leaked\n" +
            "contents carry no checksums: a file can be damaged without a finding\n";
  }
  return text + VerdictText(report) + "\n";
}

void AddReport(const Report& report, JsonObject* json) {
  json->Text("verdict", Verdict(report)).Flag("marked", report.marked).Flag("readable", report.readable);
  for (const Severity severity : kSeverities) json->Number(Name(severity), report.Count(severity));
  const Geometry& geometry = report.model.geometry;
  const Totals& totals = report.totals;
  JsonArray findings;
  for (const Finding& finding : report.findings) findings.Add(FindingJson(finding));
  json->Number("blockSize", geometry.blockSize)
      .Number("bitmapBytes", geometry.bitmapSize)
      .Number("blocks", geometry.blocks)
      .Number("files", totals.files)
      .Number("fileBytes", totals.fileBytes)
      .Number("directories", totals.directories)
      .Number("freeNodes", totals.freeNodes)
      .Number("freeBlocks", totals.freeBlocks)
      .Number("leakedBlocks", totals.leakedBlocks)
      .Number("appendableBlocks", totals.appendableBlocks)
      .Number("unlisted", All(report) - report.findings.size())
      .Json("findings", findings.Done());
}

std::string ToJson(const Report& report) {
  JsonObject json;
  AddReport(report, &json);
  return json.Done();
}

std::string ToJson(const Promise& promise) {
  return JsonObject()
      .Number("readable", promise.readable)
      .Number("kept", promise.kept)
      .Number("excused", promise.excused)
      .Number("regained", promise.regained)
      .Number("mended", promise.mended)
      .Number("toLost", promise.toLost)
      .Number("unread", promise.unread)
      .Number("lost", promise.lost())
      .Json("losses", JsonTexts(promise.losses))
      .Done();
}

std::string ToJson(const std::vector<Action>& actions) {
  JsonArray json;
  for (const Action& action : actions) {
    json.Add(JsonObject().Text("text", ToText(action)).Number("writes", action.writes.size()).Done());
  }
  return json.Done();
}

}  // namespace orba::inspect
