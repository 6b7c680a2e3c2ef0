#include "inspect/view/report.h"

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

// Texts and paths hold visible ASCII only.
std::string Quoted(const std::string& text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted + "\"";
}

std::string Pair(const char* name, std::uint64_t value) { return Quoted(name) + ":" + to_string(value); }
std::string Pair(const char* name, const std::string& value) { return Quoted(name) + ":" + Quoted(value); }
std::string Pair(const char* name, bool value) { return Quoted(name) + ":" + (value ? "true" : "false"); }

std::string FindingJson(const Finding& finding) {
  std::string json = "{" + Pair("severity", std::string(Name(SeverityOf(finding.kind)))) + "," +
                     Pair("kind", std::string(Name(finding.kind)));
  if (finding.node != 0) json += "," + Pair("node", std::uint64_t{finding.node});
  if (!finding.path.empty()) json += "," + Pair("path", finding.path);
  if (finding.block != 0) json += "," + Pair("block", std::uint64_t{finding.block});
  if (finding.offset != kNoOffset) json += "," + Pair("offset", finding.offset);
  return json + "," + Pair("count", std::uint64_t{finding.count}) + "," + Pair("text", Sentence(finding)) + "}";
}

// "clean", "leaks", "interrupted", "damaged"
std::string Verdict(const Report& report) {
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

std::uint64_t All(const Report& report) {
  std::uint64_t sum = 0;
  for (const std::uint64_t count : report.counts) sum += count;
  return sum;
}

}  // namespace

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
  text += Verdict(report) + (report.marked ? ", marked as being updated" : "");
  const char* separator = ": ";
  for (const Severity severity : kSeverities) {
    text += separator + (Name(severity) + (" " + to_string(report.Count(severity))));
    separator = ", ";
  }
  return text + "\n";
}

std::string ToJson(const Report& report) {
  std::string json = "{" + Pair("verdict", Verdict(report)) + "," + Pair("marked", report.marked) + "," +
                     Pair("readable", report.readable);
  for (const Severity severity : kSeverities) {
    json += "," + Pair(Name(severity), report.Count(severity));
  }
  const Geometry& geometry = report.model.geometry;
  const Totals& totals = report.totals;
  json += "," + Pair("blockSize", std::uint64_t{geometry.blockSize}) + "," +
          Pair("bitmapBytes", std::uint64_t{geometry.bitmapSize}) + "," +
          Pair("blocks", std::uint64_t{geometry.blocks}) + "," + Pair("files", std::uint64_t{totals.files}) + "," +
          Pair("fileBytes", totals.fileBytes) + "," + Pair("directories", std::uint64_t{totals.directories}) + "," +
          Pair("freeNodes", std::uint64_t{totals.freeNodes}) + "," +
          Pair("freeBlocks", std::uint64_t{totals.freeBlocks}) + "," +
          Pair("leakedBlocks", std::uint64_t{totals.leakedBlocks}) + "," +
          Pair("appendableBlocks", totals.appendableBlocks) + "," +
          Pair("unlisted", All(report) - report.findings.size()) + ",\"findings\":[";
  for (std::size_t i = 0; i < report.findings.size(); ++i) {
    json += (i == 0 ? "" : ",") + FindingJson(report.findings[i]);
  }
  return json + "]}\n";
}

}  // namespace orba::inspect
