// manifest and verify: what a container holds, written down and compared.
#include <algorithm>
#include <map>
#include <memory>
#include <optional>

#include "inspect/check/finding.h"
#include "inspect/container/names.h"
#include "tools/orba/command.h"
#include "tools/orba/commands.h"
#include "tools/orba/contents.h"
#include "tools/orba/digest.h"
#include "tools/orba/host/host.h"
#include "tools/orba/host_file.h"
#include "tools/orba/jobs.h"
#include "tools/orba/json.h"
#include "tools/orba/look.h"
#include "tools/orba/manifest.h"
#include "tools/orba/name_rule.h"
#include "tools/orba/terminal.h"

namespace orba::tool {

namespace {

std::string DigestOf(Look* look, const Match& file) {
  Digest digest;
  look->Read(file, [&digest](const std::uint8_t* bytes, std::size_t count) {
    digest.Add(bytes, count);
    return true;
  });
  return digest.Text();
}

std::vector<Content> ContentsAt(Look* look, const Address& address, const char* action) {
  return ContentsOf(look, {address, GetItem(look, address, action)});
}

// ---- manifest -------------------------------------------------------------------------------------------------------

int RunManifest(const std::string& operand) {
  Look look;
  const std::vector<Content> contents = ContentsAt(&look, ParseAddress(operand), "list");
  int status = kSuccess;
  for (const Content& content : contents) {
    if (content.match.item.IsDirectory()) continue;
    try {
      const std::string digest = DigestOf(&look, content.match);
      Print(ManifestText({content.name, digest, content.match.item.size}, content.match.item.time));
    } catch (const Failure& failure) {
      Report(failure);
      status = kFailed;
    }
  }
  return look.Finish(status);
}

Run DefineManifest(Syntax* syntax) {
  auto operand = std::make_shared<std::string>();
  syntax->One("CONTAINER[:/PATH]", operand.get());
  return [operand] { return RunManifest(*operand); };
}

// ---- verify ---------------------------------------------------------------------------------------------------------

struct VerifyOptions {
  std::vector<std::string> operands;  // containers, or places in them, and the reference
  std::uint32_t jobs = 0;
  bool ignoreExtra = false;
  bool rename = false;
  bool verbose = false;
  bool quiet = false;
  bool json = false;

  const std::string& reference() const { return operands.back(); }
  bool inText() const { return !quiet && !json; }
  bool several() const { return operands.size() > 2; }
};

// Something that is to be in the container.
struct Expected {
  std::string name;  // as the reference has it
  bool isDirectory = false;
  std::optional<std::uint64_t> size;
  std::string digest;  // of a manifest
  std::string path;    // of a tree
};

// By the name in the container; what no container can hold is there under its own.
struct Reference {
  bool isTree = false;
  std::map<std::string, Expected> expected;
  std::vector<std::string> problems;  // what of it could not be read

  void Add(const std::string& stored, Expected one) {
    const std::string name = one.name;
    if (!expected.emplace(stored, one).second) expected.emplace(name + " ", std::move(one));
  }
};

// Without what counts for nothing: "./LOGS//DAY1.TXT" is "LOGS/DAY1.TXT".
std::string PlainPath(const std::string& path) {
  std::string plain = path.compare(0, 1, "/") == 0 ? "/" : "";
  std::size_t start = 0;
  while (start <= path.size()) {
    const std::size_t end = std::min(path.find('/', start), path.size());
    const std::string name = path.substr(start, end - start);
    start = end + 1;
    if (name.empty() || name == ".") continue;
    if (!plain.empty() && plain.back() != '/') plain += '/';
    plain += name;
  }
  return plain;
}

Reference ReferenceIn(const std::string& manifest) {
  Reference reference;
  for (ManifestEntry& entry : ReadManifest(manifest)) {
    const std::string stored = inspect::UpperCase(PlainPath(entry.name));
    reference.Add(stored, {entry.name, false, entry.size, std::move(entry.digest), ""});
  }
  return reference;
}

class TreeReader {
 public:
  TreeReader(const VerifyOptions& options, Reference* reference) : options_(options), reference_(reference) {}

  void Add(const std::string& path, const std::string& name, const std::string& stored) {
    const std::vector<std::string> names = ListHostDirectory(path);
    const std::vector<std::string> storedNames = StoredNames(names, options_.rename);
    for (std::size_t i = 0; i < names.size(); ++i) {
      // What cannot be stored is missing, under a name that is in no container.
      const std::string last = storedNames[i].empty() ? names[i] + " " : storedNames[i];
      AddOne(JoinPath(path, names[i]), name.empty() ? names[i] : JoinPath(name, names[i]),
             stored.empty() ? last : stored + "/" + last);
    }
  }

 private:
  void AddOne(const std::string& path, const std::string& name, const std::string& stored) {
    const host::Status status = host::StatusOf(path);
    const bool link = host::OwnStatusOf(path).kind == host::Kind::kLink;
    if (status.kind == host::Kind::kFile) {
      reference_->Add(stored, {name, false, status.size, "", path});
    } else if (status.kind == host::Kind::kDirectory && !link) {
      reference_->Add(stored, {name, true, std::nullopt, "", path});
      Add(path, name, stored);
    } else {
      const Failure failure("cannot compare " + path,
                            link ? "it is a symbolic link to a directory, or leads nowhere"
                                 : "it is not an ordinary file but " + KindText(status.kind),
                            "a container holds files and directories only");
      reference_->problems.push_back(ReasonOf(failure));
      Report(failure);
    }
  }

  const VerifyOptions& options_;
  Reference* reference_;
};

Reference ReferenceOf(const VerifyOptions& options) {
  if (!IsHostDirectory(options.reference())) return ReferenceIn(options.reference());
  Reference reference;
  reference.isTree = true;
  TreeReader(options, &reference).Add(options.reference(), "", "");
  return reference;
}

bool HasContentsOf(Look* look, const Match& file, const std::string& path) {
  const Descriptor other = OpenForReading(path);
  std::vector<char> buffer;
  bool same = true;
  look->Read(file, [&](const std::uint8_t* bytes, std::size_t count) {
    buffer.resize(count);
    same = ReadFully(other.get(), path, buffer.data(), count) == count &&
           std::equal(bytes, bytes + count, reinterpret_cast<const std::uint8_t*>(buffer.data()));
    return same;
  });
  char more = 0;
  return same && ReadFully(other.get(), path, &more, 1) == 0;
}

class Verifier {
 public:
  Verifier(const VerifyOptions& options, const Address& place, Look* look, const Reference& reference)
      : options_(options), place_(place), look_(look), reference_(reference) {}

  int Run(const std::vector<Content>& contents) {
    std::map<std::string, const Content*> there;
    std::uint64_t work = 0;
    for (const Content& content : contents) {
      there[content.name] = &content;
      work += content.match.item.size + Progress::kFile;
    }
    Progress progress("verify", work, options_.quiet);
    for (const auto& [stored, expected] : reference_.expected) {
      const auto found = there.find(stored);
      if (found == there.end()) {
        Tell("missing", expected.name, "");
        missing_.push_back(expected.name);
        continue;
      }
      progress.SetItem(stored);
      Compare(expected, found->second->match);
      progress.Advance(found->second->match.item.size + Progress::kFile);
      there.erase(found);
    }
    Progress::Hide();
    for (const Content& content : contents) {
      if (there.count(content.name) != 0) TellExtra(content);
    }
    return Summary();
  }

  // What Run has found.
  void AddTo(JsonObject* json) const {
    std::vector<std::string> problems = reference_.problems;
    problems.insert(problems.end(), unread_.begin(), unread_.end());
    for (std::string& problem : look_->TakeProblems()) problems.push_back(std::move(problem));
    json->Number("same", same_)
        .Json("missing", HostTexts(missing_))
        .Json("changed", changed_.Done())
        .Json("extra", HostTexts(extra_))
        .Json("problems", HostTexts(problems));
  }

 private:
  void Compare(const Expected& expected, const Match& found) {
    try {
      const std::string difference = DifferenceOf(expected, found);
      if (difference.empty()) {
        if (!expected.isDirectory) ++same_;
        if (options_.verbose && !expected.isDirectory) Tell("same", expected.name, "");
        return;
      }
      Tell("changed", expected.name, difference);
      ++differing_;
      changed_.Add(JsonObject().Json("path", HostText(expected.name)).Text("difference", difference).Done());
    } catch (const Failure& failure) {
      Report(failure);
      unread_.push_back(ReasonOf(failure));
    }
  }

  std::string DifferenceOf(const Expected& expected, const Match& found) {
    if (expected.isDirectory != found.item.IsDirectory()) {
      return found.item.IsDirectory() ? "a directory, not a file" : "a file, not a directory";
    }
    if (expected.isDirectory) return "";
    if (expected.size.has_value() && *expected.size != found.item.size) {
      return inspect::Counted(found.item.size, "byte") + ", not " + std::to_string(*expected.size);
    }
    const bool same =
        expected.path.empty() ? DigestOf(look_, found) == expected.digest : HasContentsOf(look_, found, expected.path);
    return same ? "" : "other contents";
  }

  // A manifest tells of files alone.
  void TellExtra(const Content& content) {
    if (options_.ignoreExtra || (content.match.item.IsDirectory() && !reference_.isTree)) return;
    Tell("extra", content.name, "");
    extra_.push_back(content.name);
  }

  void Tell(const char* verdict, const std::string& name, const std::string& difference) const {
    if (!options_.inText() || options_.several()) return;
    Print(PadRight(verdict, 9) + Visible(name) + (difference.empty() ? "" : ": " + difference) + "\n");
  }

  int Summary() {
    const int status = missing_.size() + differing_ + extra_.size() > 0 ? kDifferent : kSuccess;
    if (options_.inText()) {
      Print((options_.several() ? place_.Text() + ": " : "") + inspect::Counted(same_, "file is", "files are") +
            " the same, " + std::to_string(missing_.size()) + " missing, " + std::to_string(differing_) + " changed, " +
            std::to_string(extra_.size()) + " extra\n");
    }
    return unread_.empty() && reference_.problems.empty() ? status : kTrouble;
  }

  const VerifyOptions& options_;
  const Address& place_;
  Look* look_;
  const Reference& reference_;
  std::uint64_t same_ = 0;
  std::uint64_t differing_ = 0;
  std::vector<std::string> missing_;
  JsonArray changed_;
  std::vector<std::string> extra_;
  std::vector<std::string> unread_;  // why
};

constexpr const char* kNotCompared = "not compared";

Outcome Verify(const VerifyOptions& options, const Address& place, const Reference& reference, JsonObject* json) {
  Look look;
  const std::vector<Content> contents = ContentsAt(&look, place, "verify");
  Verifier verifier(options, place, &look, reference);
  const int status = verifier.Run(contents);
  if (json != nullptr) verifier.AddTo(json);
  constexpr int kNothingTold = -1;
  if (look.Finish(kNothingTold) != kNothingTold || status == kTrouble) return {kTrouble, kNotCompared};
  return {status, status == kSuccess ? "the same" : "different"};
}

// `reference` yields the reference, or fails.
template <typename Yield>
Outcome VerifyAsJson(const VerifyOptions& options, const Address& place, const Yield& reference) {
  Outcome outcome = {};
  PrintObject("container", place.container, [&](JsonObject* json) {
    json->Text("path", inspect::Printable(place.Path())).Json("reference", HostText(options.reference()));
    outcome = Verify(options, place, reference(), json);
  });
  return outcome;
}

int VerifyAll(const VerifyOptions& options) {
  if (options.operands.size() < 2) throw UsageFailure("verify", "MANIFEST|TREE is missing");
  std::optional<Reference> reference;
  std::optional<Failure> unread;
  try {
    reference = ReferenceOf(options);
  } catch (const Failure& failure) {
    if (!options.json || options.quiet) throw;
    unread = failure;
  }
  const auto yield = [&]() -> const Reference& {
    if (unread.has_value()) throw Failure(*unread);
    return *reference;
  };
  const std::size_t count = options.operands.size() - 1;
  const Batch batch = {"verify", count, options.jobs, options.quiet, {kTrouble, kNotCompared}};
  const std::vector<Outcome> outcomes = RunBatch(batch, [&](std::size_t number) {
    const Address place = ParseAddress(options.operands[number]);
    if (options.json && !options.quiet) return VerifyAsJson(options, place, yield);
    return Verify(options, place, *reference, nullptr);
  });
  if (count > 1 && options.inText()) Print(Summary(outcomes, {"the same", "different", kNotCompared}));
  return WorstStatus(outcomes, {kSuccess, kDifferent, kTrouble});
}

int RunVerify(const VerifyOptions& options) {
  SetStatusWithoutMemory(kTrouble);
  return StatusOf(kTrouble, [&] { return VerifyAll(options); });
}

Run DefineVerify(Syntax* syntax) {
  auto options = std::make_shared<VerifyOptions>();
  syntax->Flag("--ignore-extra", &options->ignoreExtra, "what the manifest or tree does not have is no difference");
  syntax->Flag("--rename", &options->rename, "expect the names that put --rename gives to the files of a tree");
  syntax->Flag("-v,--verbose", &options->verbose, "print the files that are the same too");
  syntax->Flag("--json", &options->json, "a JSON object for each container, on a line of its own");
  syntax->Flag("-q,--quiet", &options->quiet, "print nothing: the exit status tells; also with --json");
  DefineJobs(syntax, &options->jobs);
  syntax->Many("CONTAINER[:/PATH]", &options->operands);
  return [options] { return RunVerify(*options); };
}

}  // namespace

const Command kManifestCommand = {
    "manifest",
    kTransferGroup,
    "CONTAINER[:/PATH]",
    "print the checksums of all files",
    "Prints the SHA-256 of each file in the format of sha256sum, names from PATH on, with sizes and times (UTC) in "
    "comments. \"sha256sum -c\" checks with it what get has copied; verify checks a container. Contents have no "
    "checksums inside a container: a manifest tells later whether they are still the same.",
    "orba manifest card.orb > card.sha256\n"
    "orba get card.orb backup && cd backup && sha256sum -c ../card.sha256",
    DefineManifest,
};

const Command kVerifyCommand = {
    "verify",
    kTransferGroup,
    "CONTAINER[:/PATH]... MANIFEST|TREE",
    "compare what a container holds with a manifest or a tree",
    "Compares the contents of PATH and everything below it with a manifest, as manifest, put --manifest or sha256sum "
    "write it (\"-\" is standard input), or with a directory of the host, byte for byte. Prints what is missing in the "
    "container, changed or extra; of each of several containers how much that is. Letter case makes no difference in "
    "names; times are not compared.\n\n"
    "Exits with 0 when nothing differs, 1 when something does, 2 when something could not be compared; of "
    "several containers the worst counts.",
    "orba verify card.orb:/LOGS logs.sha256  # which put --manifest has written\n"
    "orba verify card.orb backup\n"
    "orba verify *.orb image.sha256",
    DefineVerify,
};

}  // namespace orba::tool
