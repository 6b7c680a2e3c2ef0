#include "fuzz/fuzz_input.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "tests/support/image_builder.h"

namespace fuzz {

namespace {

using testimage::ImageBuilder;

constexpr std::uint32_t kChoiceSize = 4;
constexpr std::uint32_t kMostChoices = 48;
constexpr std::uint32_t kMostPatches = 12;
constexpr std::uint16_t kDirectory = 0x0008;

// ---- Sound containers -----------------------------------------------------------------------------------------------

// Directories in each other, files of all lengths up to one that needs a block map.
ImageBuilder MakeTree() {
  ImageBuilder image(1024, 8);
  image.AddFile(1, "A.TXT", 1500);
  const std::uint16_t directory = image.AddDirectory(1, "DIR");
  image.AddFile(directory, "MAPPED", 9 * 1024 + 1);
  const std::uint16_t inner = image.AddDirectory(directory, "INNER");
  image.AddFile(inner, "EMPTY", 0);
  image.AddFile(inner, "BLOCK", 1024);
  image.AddDirectory(inner, "NOTHING");
  return image;
}

// Two records of free blocks, nodes in several node blocks, a directory whose block is full and one with an entry more.
ImageBuilder MakeChained() {
  ImageBuilder image(1024, 16);
  for (const int entries : {32, 33}) {
    const std::uint16_t directory = image.AddDirectory(1, "D" + std::to_string(entries));
    for (int i = 2; i < entries; ++i) image.AddFile(directory, "F" + std::to_string(i), i % 5 == 0 ? 100 : 0);
  }
  image.AddFile(1, "LAST", 3000);
  std::vector<std::vector<std::uint32_t>> records(2);
  for (std::size_t i = 0; i < 7; ++i) records[i % 2].push_back(image.AppendBlock());
  image.SetChain(records);
  return image;
}

// More numbers than node blocks can hold, and a record of free blocks that is full.
ImageBuilder MakeFreed() {
  ImageBuilder image(1024, 896);
  image.AddFile(image.AddDirectory(1, "DIR"), "A", 7000);
  std::vector<std::vector<std::uint32_t>> records(2);
  for (std::size_t i = 0; i < 253 + 4; ++i) records[i / 253].push_back(image.AppendBlock());
  image.SetChain(records);
  return image;
}

// A file that needs all of its map: 6 blocks, 256 by the indirect block, 2 by the double-indirect one.
ImageBuilder MakeLong() {
  ImageBuilder image(1024, 8);
  image.AddFile(1, "LONG", 264 * 1024);
  image.AddFile(1, "SHORT", 10);
  return image;
}

// More levels than a full path name may have.
ImageBuilder MakeDeep() {
  ImageBuilder image(1024, 16);
  std::uint16_t directory = 1;
  for (int level = 0; level < 66; ++level) directory = image.AddDirectory(directory, "D");
  image.AddFile(directory, "BOTTOM", 2000);
  return image;
}

// Every node is taken.
ImageBuilder MakeFull() {
  ImageBuilder image(1024, 2);
  for (std::uint32_t i = 0; i < 14; ++i) image.AddFile(1, "F" + std::to_string(i), 600 * i);
  image.AddDirectory(1, "DIR");
  image.SetChain({{}});
  return image;
}

// The block size of OrbCreateVolume.
ImageBuilder MakeDefault() {
  ImageBuilder image(4096, 32);
  image.AddFile(image.AddDirectory(1, "LOGS"), "DAY1.TXT", 5000);
  image.AddFile(1, "CONFIG", 300);
  image.SetChain({{image.AppendBlock()}});
  return image;
}

ImageBuilder MakeWide() {
  ImageBuilder image(8192, 8);
  image.AddFile(image.AddDirectory(1, "LOGS"), "DAY1.TXT", 9000);
  return image;
}

ImageBuilder MakeRootAlone() { return ImageBuilder(2048, 0); }

// ---- Places that mean something -------------------------------------------------------------------------------------

enum Class { kHeader, kTable, kBitmap, kNode, kEntry, kNumber, kMap, kChain, kAnywhere, kClasses };

struct Base {
  Bytes bytes;
  std::uint64_t firstBlock;  // its offset
  std::uint32_t blockSize;
  std::uint32_t blocks;
  std::vector<std::uint64_t> places[kClasses];  // offsets
  std::uint32_t recordSize[kClasses];           // what is copied from one place to another
};

void AddPlaces(Base* base, Class kind, std::uint64_t start, std::uint64_t end, std::uint32_t step) {
  for (std::uint64_t at = start; at < end && at < base->bytes.size(); at += step) base->places[kind].push_back(at);
}

// A map block: its first slots, and those around the last one in use.
void AddMapPlaces(Base* base, const ImageBuilder& image, std::uint32_t block) {
  if (block == 0) return;
  const std::uint64_t start = image.BlockOffset(block);
  std::uint32_t used = 0;
  while (used < image.blockSize() / 4 && image.Get32(start + 4 * used) != 0) ++used;
  AddPlaces(base, kMap, start, start + 16, 4);
  if (used > 4) AddPlaces(base, kMap, start + 4 * used - 4, start + 4 * used + 8, 4);
}

void AddNodePlaces(Base* base, const ImageBuilder& image, std::uint16_t node) {
  const std::uint64_t record = image.NodeOffset(node);
  AddPlaces(base, kNode, record, record + 64, 2);
  for (std::uint32_t i = 0; i < 16; ++i) base->places[kNode].push_back(record + 32 + 2 * i);  // the map most of all
  AddMapPlaces(base, image, image.Get32(record + 56));
  if (image.Get32(record + 60) != 0) {
    AddMapPlaces(base, image, image.Get32(record + 60));
    AddMapPlaces(base, image, image.Get32(image.BlockOffset(image.Get32(record + 60))));
  }
  if ((image.Get16(record + 6) & kDirectory) == 0) return;
  for (std::uint32_t i = 0; i < image.Size(node) / 32; ++i) {
    const std::uint64_t entry = image.EntryOffset(node, i);
    for (const std::uint32_t byte : {0u, 0u, 2u, 4u, 30u, 32u})
      AddPlaces(base, kEntry, entry + byte, entry + byte + 1, 1);
  }
}

Base MakeBase(const ImageBuilder& image) {
  Base base;
  base.bytes = image.bytes();
  base.firstBlock = image.BlockOffset(1);
  base.blockSize = image.blockSize();
  base.blocks = image.Blocks();
  AddPlaces(&base, kHeader, 0, 128, 4);
  AddPlaces(&base, kTable, 128, 160, 4);
  AddPlaces(&base, kTable, 1020, 1024, 4);
  AddPlaces(&base, kBitmap, 1024, std::min<std::uint64_t>(1024 + 16, base.firstBlock), 1);
  const auto bits = static_cast<std::uint32_t>(8 * (base.firstBlock - 1024));
  for (std::uint16_t node = 1; node <= std::max(bits, 1u); ++node) {
    const bool used = bits == 0 || (image.bytes()[1024 + (node - 1u) / 8] & (0x80 >> ((node - 1) % 8))) == 0;
    if (used) AddNodePlaces(&base, image, node);
  }
  for (std::uint32_t record = image.Get32(48); record != 0; record = image.Get32(image.BlockOffset(record) + 4)) {
    AddPlaces(&base, kChain, image.BlockOffset(record), image.BlockOffset(record) + 32, 4);
  }
  const std::uint32_t sizes[kClasses] = {4, 4, 1, 64, 32, 2, 4, 4, 64};
  std::copy(sizes, sizes + kClasses, base.recordSize);
  return base;
}

const std::vector<Base>& Bases() {
  static const std::vector<Base> bases = [] {
    std::vector<Base> made;
    for (const auto make :
         {MakeTree, MakeChained, MakeFreed, MakeLong, MakeDeep, MakeFull, MakeDefault, MakeWide, MakeRootAlone}) {
      made.push_back(MakeBase(make()));
    }
    return made;
  }();
  return bases;
}

// ---- Patches --------------------------------------------------------------------------------------------------------

enum Kind {
  kByte,
  kHalf,
  kWord,
  kSigned,
  kHigh,
  kBit,
  kSmall,
  kStep,
  kBlockNumber,
  kCopyRecord,
  kCopyBlock,
  kGeometry,
  kLength,
  kKinds
};

struct Patch {
  Class type;
  Kind kind;
  std::uint32_t place, value;
};

// As many of the value's bytes as the image still holds there.
void Put(Bytes* image, std::uint64_t offset, std::uint32_t value, std::uint32_t width) {
  for (std::uint32_t i = 0; i < width && offset + i < image->size(); ++i) {
    (*image)[offset + i] = static_cast<std::uint8_t>(value >> 8 * i);
  }
}

std::uint32_t Get(const Bytes& image, std::uint64_t offset) {
  std::uint32_t value = 0;
  for (std::uint32_t i = 0; i < 4 && offset + i < image.size(); ++i) {
    value |= static_cast<std::uint32_t>(image[offset + i]) << 8 * i;
  }
  return value;
}

void Copy(Bytes* image, std::uint64_t to, std::uint64_t from, std::uint32_t count) {
  for (std::uint32_t i = 0; i < count && std::max(to, from) + i < image->size(); ++i) {
    (*image)[to + i] = (*image)[from + i];
  }
}

std::uint64_t PlaceOf(const Base& base, Class type, std::uint32_t number) {
  const std::vector<std::uint64_t>& places = base.places[type];
  return places.empty() ? std::uint64_t{number} * base.bytes.size() / 0x10000 : places[number % places.size()];
}

// A header that agrees with itself: a smaller bitmap leaves the rest of its bytes reserved, a larger one moves all
// blocks.
void SetBitmapSize(const Base& base, std::uint32_t size, Bytes* image) {
  const auto blocks = static_cast<std::uint32_t>(base.firstBlock);
  const std::uint32_t end = 1024 + size;
  Put(image, 24, size, 4);
  Put(image, 28, end, 4);
  Put(image, 32, end < blocks ? blocks - end : 0, 4);
  Put(image, 36, std::max(end, blocks), 4);
}

void Apply(const Base& base, const Patch& patch, Bytes* image) {
  const std::uint64_t at = PlaceOf(base, patch.type, patch.place);
  switch (patch.kind) {
    case kByte:
      return Put(image, at, patch.value, 1);
    case kHalf:
      return Put(image, at, patch.value, 2);
    case kWord:
      return Put(image, at, patch.value, 4);
    case kSigned:
      return Put(image, at, patch.value | 0xFFFF0000, 4);
    case kHigh:
      return Put(image, at, patch.value << 16, 4);
    case kBit:
      if (at < image->size()) Put(image, at, (*image)[at] ^ (1u << patch.value % 8), 1);
      return;
    case kSmall:  // a node's number
      return Put(image, at, patch.value % 16, 2);
    case kStep:  // a directory's size by entries, any size by at most a block of the smallest kind
      return Put(image, at, Get(*image, at) + patch.value % 65 * 32 - 1024, 4);
    case kBlockNumber:
      return Put(image, at, patch.value % (base.blocks + 2), 4);
    case kCopyRecord:
      return Copy(image, at, PlaceOf(base, patch.type, patch.value), base.recordSize[patch.type]);
    case kCopyBlock:
      return Copy(image, base.firstBlock + std::uint64_t{patch.place % base.blocks} * base.blockSize,
                  base.firstBlock + std::uint64_t{patch.value % base.blocks} * base.blockSize, base.blockSize);
    case kGeometry:
      return SetBitmapSize(base, patch.value % 8192, image);
    case kLength:  // mostly cut
      image->resize(patch.place % 8 == 0 ? image->size() + patch.value % 5000
                                         : std::uint64_t{patch.value} * image->size() / 0x10000);
      return;
    case kKinds:
      break;
  }
}

// ---- Reading bytes --------------------------------------------------------------------------------------------------

class Cursor {
 public:
  Cursor(const std::uint8_t* data, std::size_t size) : at_(data), end_(data + size) {}

  bool AtEnd() const { return at_ == end_; }
  std::uint8_t Byte() { return AtEnd() ? std::uint8_t{0} : *at_++; }
  std::uint32_t Half() {
    const std::uint32_t low = Byte();
    return low | static_cast<std::uint32_t>(Byte()) << 8;
  }

 private:
  const std::uint8_t* at_;
  const std::uint8_t* end_;
};

}  // namespace

Input ReadInput(const std::uint8_t* data, std::size_t size) {
  Input input;
  const char signature[] = {'O', 'R', 'B', 'A'};
  if (size >= sizeof signature && std::equal(signature, signature + sizeof signature, data)) {
    input.image.assign(data, data + size);
    return input;
  }
  Cursor cursor(data, size);
  const Base& base = Bases()[cursor.Byte() % Bases().size()];
  for (std::uint32_t left = cursor.Byte() % kMostChoices; left > 0 && !cursor.AtEnd(); --left) {
    Choice choice = {};
    choice.what = cursor.Byte();
    choice.first = cursor.Byte();
    choice.second = cursor.Byte();
    choice.amount = cursor.Byte();
    input.choices.push_back(choice);
  }
  input.image = base.bytes;
  while (!cursor.AtEnd()) {
    Patch patch = {};
    patch.type = static_cast<Class>(cursor.Byte() % kClasses);
    patch.kind = static_cast<Kind>(cursor.Byte() % kKinds);
    patch.place = cursor.Half();
    patch.value = cursor.Half();
    Apply(base, patch, &input.image);
  }
  return input;
}

Bytes RandomInput(std::uint64_t seed) {
  std::uint64_t state = seed * 0x9E3779B97F4A7C15u + 1;
  const auto next = [&state] {
    state ^= state << 13;
    state ^= state >> 7;
    state ^= state << 17;
    return static_cast<std::uint32_t>(state >> 32);
  };
  next();
  const std::uint32_t choices = next() % kMostChoices;
  const std::uint32_t patches = 1 + next() % (1 + next() % kMostPatches);
  Bytes bytes(2 + kChoiceSize * choices + kPatchSize * patches);
  for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(next());
  bytes[1] = static_cast<std::uint8_t>(choices);
  for (std::uint32_t i = 0; i < patches; ++i) {  // half of the values are small: numbers of blocks, nodes and entries
    if (next() % 2 == 0) bytes[bytes.size() - 1 - kPatchSize * i] = 0;
  }
  return bytes;
}

void Require(bool kept, const std::string& promise) {
  if (kept) return;
  std::fprintf(stderr, "broken: %s\n", promise.c_str());
  std::abort();
}

}  // namespace fuzz
