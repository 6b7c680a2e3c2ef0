// The records of a 32-bit PE image, as far as the device images use them. elf2pe writes them, the device tests' loader
// reads them. All integers are little-endian; every record is naturally aligned.
#pragma once

#include <cstddef>
#include <cstdint>

namespace pe {

constexpr uint16_t kDosSignature = 0x5A4D;     // "MZ"
constexpr uint32_t kPeSignature = 0x00004550;  // "PE\0\0"
constexpr uint32_t kSectionAlignment = 0x1000;
constexpr uint32_t kFileAlignment = 0x200;

constexpr uint16_t kMachineArm = 0x01C0;        // ARM, up to Windows CE 7
constexpr uint16_t kMachineThumb = 0x01C2;      // ARM and Thumb with interworking, Windows CE 5 to 7
constexpr uint16_t kMachineArmThumb2 = 0x01C4;  // Thumb-2, from the 2013 generation on

// Executable, 32-bit, a DLL, without line numbers and local symbols.
constexpr uint16_t kDllCharacteristics = 0x210E;

struct FileHeader {
  uint16_t machine;               //  0
  uint16_t numberOfSections;      //  2
  uint32_t timeDateStamp;         //  4
  uint32_t pointerToSymbolTable;  //  8
  uint32_t numberOfSymbols;       // 12
  uint16_t sizeOfOptionalHeader;  // 16
  uint16_t characteristics;       // 18
};
static_assert(sizeof(FileHeader) == 20, "layout");

constexpr uint16_t kOptionalMagic = 0x10B;
constexpr uint16_t kSubsystemWindowsCe = 9;

struct DataDirectory {
  uint32_t rva;
  uint32_t size;
};

enum DirectoryIndex { kExportDirectory = 0, kImportDirectory = 1, kRelocationDirectory = 5, kAddressTable = 12 };
constexpr uint32_t kDirectories = 16;

struct OptionalHeader {
  uint16_t magic;                         //  0
  uint8_t majorLinkerVersion;             //  2
  uint8_t minorLinkerVersion;             //  3
  uint32_t sizeOfCode;                    //  4
  uint32_t sizeOfInitializedData;         //  8
  uint32_t sizeOfUninitializedData;       // 12
  uint32_t addressOfEntryPoint;           // 16
  uint32_t baseOfCode;                    // 20
  uint32_t baseOfData;                    // 24
  uint32_t imageBase;                     // 28
  uint32_t sectionAlignment;              // 32
  uint32_t fileAlignment;                 // 36
  uint16_t majorOperatingSystemVersion;   // 40
  uint16_t minorOperatingSystemVersion;   // 42
  uint16_t majorImageVersion;             // 44
  uint16_t minorImageVersion;             // 46
  uint16_t majorSubsystemVersion;         // 48
  uint16_t minorSubsystemVersion;         // 50
  uint32_t reserved;                      // 52
  uint32_t sizeOfImage;                   // 56
  uint32_t sizeOfHeaders;                 // 60
  uint32_t checkSum;                      // 64
  uint16_t subsystem;                     // 68
  uint16_t dllCharacteristics;            // 70
  uint32_t sizeOfStackReserve;            // 72
  uint32_t sizeOfStackCommit;             // 76
  uint32_t sizeOfHeapReserve;             // 80
  uint32_t sizeOfHeapCommit;              // 84
  uint32_t loaderFlags;                   // 88
  uint32_t numberOfDirectories;           // 92
  DataDirectory directory[kDirectories];  // 96
};
static_assert(sizeof(OptionalHeader) == 224, "layout");
static_assert(offsetof(OptionalHeader, checkSum) == 64, "layout");

struct NtHeaders {
  uint32_t signature;       //  0
  FileHeader file;          //  4
  OptionalHeader optional;  // 24
};
static_assert(sizeof(NtHeaders) == 248, "layout");
static_assert(offsetof(NtHeaders, optional) == 24, "layout");

constexpr uint32_t kDosHeaderSize = 64;
constexpr uint32_t kNtHeadersOffset = 60;  // in the DOS header: where the NT headers are

// Section flags.
constexpr uint32_t kSectionCode = 0x00000020;
constexpr uint32_t kSectionData = 0x00000040;
constexpr uint32_t kSectionDiscardable = 0x02000000;
constexpr uint32_t kSectionExecute = 0x20000000;
constexpr uint32_t kSectionRead = 0x40000000;
constexpr uint32_t kSectionWrite = 0x80000000;

struct SectionHeader {
  char name[8];                   //  0  NUL-padded
  uint32_t virtualSize;           //  8
  uint32_t rva;                   // 12
  uint32_t sizeOfRawData;         // 16  may be smaller than virtualSize: the rest is zero
  uint32_t pointerToRawData;      // 20
  uint32_t pointerToRelocations;  // 24
  uint32_t pointerToLinenumbers;  // 28
  uint16_t numberOfRelocations;   // 32
  uint16_t numberOfLinenumbers;   // 34
  uint32_t characteristics;       // 36
};
static_assert(sizeof(SectionHeader) == 40, "layout");

struct ImportDescriptor {
  uint32_t lookupTable;     //  0  RVA
  uint32_t timeDateStamp;   //  4
  uint32_t forwarderChain;  //  8
  uint32_t name;            // 12  RVA
  uint32_t addressTable;    // 16  RVA
};
static_assert(sizeof(ImportDescriptor) == 20, "layout");

constexpr uint32_t kImportByOrdinal = 0x80000000;  // in a lookup entry; else it is the RVA of a 16-bit hint and a name

struct ExportDirectory {
  uint32_t flags;              //  0
  uint32_t timeDateStamp;      //  4
  uint16_t majorVersion;       //  8
  uint16_t minorVersion;       // 10
  uint32_t name;               // 12  RVA
  uint32_t ordinalBase;        // 16
  uint32_t numberOfFunctions;  // 20
  uint32_t numberOfNames;      // 24
  uint32_t functions;          // 28  RVA of numberOfFunctions RVAs
  uint32_t names;              // 32  RVA of numberOfNames RVAs, sorted by name
  uint32_t ordinals;           // 36  RVA of numberOfNames u16, indices into functions
};
static_assert(sizeof(ExportDirectory) == 40, "layout");

// A block of base relocations: this header, then u16 entries, kind in the upper 4 bits, offset in the page below.
struct RelocationBlock {
  uint32_t pageRva;
  uint32_t blockSize;  // header included
};
static_assert(sizeof(RelocationBlock) == 8, "layout");

enum RelocationKind : uint16_t {
  kRelocationPadding = 0,
  kRelocationWord = 3,       // a 32-bit address
  kRelocationArmMove = 5,    // an ARM MOVW/MOVT pair
  kRelocationThumbMove = 7,  // a Thumb-2 MOVW/MOVT pair
};

}  // namespace pe
