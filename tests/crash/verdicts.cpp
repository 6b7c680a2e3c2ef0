#include "crash/verdicts.h"

#include <gtest/gtest.h>
#include <stdio.h>

#include <array>
#include <fstream>
#include <map>
#include <optional>
#include <set>
#include <sstream>

namespace orba {

namespace {

constexpr size_t kSituations = 4;
const std::array<std::string, kSituations> kHeadings = {"", "full disk:\n", "no memory:\n", "end of memory:\n"};

using Verdicts = std::array<std::optional<std::string>, kSituations>;

bool g_Keep;
std::map<std::string, Verdicts> g_Kept;  // by the operation's name

size_t Index(Situation situation) { return static_cast<size_t>(situation); }

std::string PathOf(const std::string& name) { return ORBA_EXPECTED "/" + name + ".txt"; }

std::string BlockSizeOf(const testhost::Operation& operation) { return "_" + std::to_string(operation.blockSize); }

std::string NameWithoutBlockSize(const testhost::Operation& operation) {
  return operation.name.substr(0, operation.name.size() - BlockSizeOf(operation).size());
}

std::optional<std::string> Read(const std::string& name) {
  std::ifstream file(PathOf(name));
  if (!file) return std::nullopt;
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

// The part of a file for a situation: behind its heading, up to the next heading or to the end.
std::optional<std::string> Part(const std::string& text, Situation situation) {
  const std::string& heading = kHeadings[Index(situation)];
  const size_t at = text.find(heading);
  if (at == std::string::npos) return std::nullopt;
  const size_t start = at + heading.size();
  size_t end = text.find(":\n", start);
  if (end != std::string::npos) end = text.rfind('\n', end - 1) + 1;
  return text.substr(start, end - start);
}

std::string Expected(const testhost::Operation& operation, Situation situation) {
  std::optional<std::string> text = Read(operation.name);
  if (!text) text = Read(NameWithoutBlockSize(operation));
  if (!text) return "no file for " + operation.name;
  std::optional<std::string> part = Part(*text, situation);
  if (!part && situation == Situation::kEndOfMemory) part = Part(*text, Situation::kNoMemory);
  return part.value_or("");
}

bool IsWhole(const Verdicts& verdicts) {
  for (const auto& part : verdicts) {
    if (!part) return false;
  }
  return true;
}

std::string Text(const Verdicts& verdicts) {
  std::string text;
  for (size_t i = 0; i < kSituations; ++i) {
    const bool asNoMemory = i == Index(Situation::kEndOfMemory) && verdicts[i] == verdicts[Index(Situation::kNoMemory)];
    // An empty list stands where it differs from that of the situation it would be taken from.
    const bool empty = verdicts[i]->empty() && i != Index(Situation::kEndOfMemory);
    if (!asNoMemory && !empty) text += kHeadings[i] + *verdicts[i];
  }
  return text;
}

bool Write(const std::string& name, const std::string& text) {
  if (Read(name) == text) return true;
  printf("updated: %s\n", PathOf(name).c_str());
  std::ofstream file(PathOf(name));
  file << text;
  return static_cast<bool>(file.flush());
}

void Remove(const std::string& name) {
  if (remove(PathOf(name).c_str()) == 0) printf("removed: %s\n", PathOf(name).c_str());
}

}  // namespace

void ExpectVerdicts(const testhost::Operation& operation, Situation situation, const std::string& verdicts) {
  if (g_Keep) {
    g_Kept[operation.name][Index(situation)] = verdicts;
  } else {
    EXPECT_EQ(verdicts, Expected(operation, situation)) << "where this is right: crash_tests --update";
  }
}

void KeepVerdicts() { g_Keep = true; }

bool UpdateVerdicts() {
  std::map<std::string, std::set<std::string>> texts;  // by name without block size
  std::set<std::string> unfinished;
  for (const testhost::Operation& operation : testhost::Operations()) {
    const Verdicts& kept = g_Kept[operation.name];
    if (IsWhole(kept)) {
      texts[NameWithoutBlockSize(operation)].insert(Text(kept));
    } else {
      unfinished.insert(NameWithoutBlockSize(operation));
    }
  }
  bool written = true;
  for (const testhost::Operation& operation : testhost::Operations()) {
    const std::string name = NameWithoutBlockSize(operation);
    if (unfinished.count(name) != 0) continue;
    const bool alike = texts[name].size() == 1;
    written &= Write(alike ? name : operation.name, Text(g_Kept[operation.name]));
    Remove(alike ? operation.name : name);
  }
  if (!unfinished.empty()) printf("not updated, since not all of their tests ran: %zu operations\n", unfinished.size());
  return written;
}

}  // namespace orba
