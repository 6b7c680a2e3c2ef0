#include "tools/orba/manifest.h"

#include <cstdio>

#include "tools/orba/failure.h"
#include "tools/orba/host_file.h"
#include "tools/orba/syntax.h"

namespace orba::tool {

namespace {

constexpr std::size_t kDigits = 64;
constexpr const char* kSizeComment = "# size ";

// sha256sum begins a line with "\" where the name holds one of the left characters, and writes the right one behind
// a "\" instead.
constexpr char kEscapes[][2] = {{'\\', '\\'}, {'\n', 'n'}, {'\r', 'r'}};

std::string Escaped(const std::string& name) {
  std::string escaped;
  for (const char c : name) {
    char written = c;
    for (const auto& [character, letter] : kEscapes) {
      if (c != character) continue;
      escaped += '\\';
      written = letter;
    }
    escaped += written;
  }
  return escaped;
}

std::optional<std::string> Unescaped(const std::string& text) {
  std::string name;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\') {
      name += text[i];
      continue;
    }
    const std::size_t before = name.size();
    ++i;
    for (const auto& [character, letter] : kEscapes) {
      if (i < text.size() && text[i] == letter) name += character;
    }
    if (name.size() == before) return std::nullopt;
  }
  return name;
}

std::string LowerCase(std::string digits) {
  for (char& c : digits) {
    if (c >= 'A' && c <= 'F') c = static_cast<char>(c - 'A' + 'a');
  }
  return digits;
}

// "DIGITS  NAME", or "*" for the second blank.
std::optional<ManifestEntry> EntryIn(const std::string& line) {
  const bool escaped = line[0] == '\\';
  const std::string text = escaped ? line.substr(1) : line;
  if (text.size() < kDigits + 3 || text[kDigits] != ' ') return std::nullopt;
  if (text[kDigits + 1] != ' ' && text[kDigits + 1] != '*') return std::nullopt;
  ManifestEntry entry;
  entry.digest = LowerCase(text.substr(0, kDigits));
  if (entry.digest.find_first_not_of("0123456789abcdef") != std::string::npos) return std::nullopt;
  const std::string name = text.substr(kDigits + 2);
  const std::optional<std::string> plain = escaped ? Unescaped(name) : name;
  if (!plain.has_value()) return std::nullopt;
  entry.name = *plain;
  return entry;
}

// The size that a comment tells of the file in the next line.
std::optional<std::uint64_t> SizeOf(const std::string& comment) {
  const std::string prefix = kSizeComment;
  if (comment.compare(0, prefix.size(), prefix) != 0) return std::nullopt;
  return NumberIn(comment.substr(prefix.size(), comment.find(',') - prefix.size()));
}

// Line by line.
class Lines {
 public:
  explicit Lines(const std::string& path) : path_(path), file_(OpenForReading(path)) {}

  std::optional<std::string> Next() {
    std::size_t end = text_.find('\n', begin_);
    while (end == std::string::npos && !ended_) {
      text_.erase(0, begin_);
      begin_ = 0;
      const std::size_t before = text_.size();
      if (before > kLongest) break;
      text_.resize(before + kPiece);
      const std::size_t count = ReadFully(file_.get(), path_, &text_[before], kPiece);
      text_.resize(before + count);
      ended_ = count < kPiece;
      end = text_.find('\n', before);
    }
    if (end == std::string::npos && begin_ == text_.size()) return std::nullopt;
    std::string line = text_.substr(begin_, end - begin_);
    begin_ = end == std::string::npos ? text_.size() : end + 1;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return line;
  }

 private:
  static constexpr std::size_t kPiece = 64 * 1024;
  static constexpr std::size_t kLongest = 1024 * 1024;  // no line of a manifest has so many characters

  std::string path_;
  Descriptor file_;
  std::string text_;
  std::size_t begin_ = 0;
  bool ended_ = false;
};

}  // namespace

std::string ManifestText(const ManifestEntry& entry, const OrbTime& time) {
  char stamp[64];
  std::snprintf(stamp, sizeof stamp, "%04u-%02u-%02uT%02u:%02u:%02uZ", unsigned{time.year}, unsigned{time.month},
                unsigned{time.day}, unsigned{time.hour}, unsigned{time.minute}, unsigned{time.second});
  const std::string name = Escaped(entry.name);
  return kSizeComment + std::to_string(entry.size.value_or(0)) + ", time " + stamp + "\n" +
         (name == entry.name ? "" : "\\") + entry.digest + "  " + name + "\n";
}

std::vector<ManifestEntry> ReadManifest(const std::string& path) {
  std::vector<ManifestEntry> entries;
  Lines lines(path);
  std::optional<std::uint64_t> size;
  std::size_t number = 0;
  while (const std::optional<std::string> line = lines.Next()) {
    ++number;
    if (line->empty()) continue;
    if (line->front() == '#') {
      size = SizeOf(*line);
      continue;
    }
    std::optional<ManifestEntry> entry = EntryIn(*line);
    if (!entry.has_value()) {
      throw Failure("cannot use " + path + " as a manifest",
                    "line " + std::to_string(number) + " has no SHA-256 and name, as sha256sum writes them",
                    "make one with: orba manifest CONTAINER > FILE");
    }
    entry->size = size;
    size.reset();
    entries.push_back(*std::move(entry));
  }
  return entries;
}

}  // namespace orba::tool
