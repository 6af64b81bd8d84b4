#pragma once

// The values that CZip takes and returns.

/// How an entry of an archive is encrypted.
enum class XZipEncryption : unsigned int
{
    kNone = 0,
    kTraditional = 1, ///< readable by every program, but weak
    kAes128 = 2,
    kAes192 = 3,
    kAes256 = 4,
    kUnknown = 5
};

/// How CZip::Open opens an archive. Any other value is zipOpenReadWrite.
enum ZipOpenMode : int
{
    zipOpenReadWrite = 0,
    zipOpenReadOnly = 1,
    zipCreate = 2 ///< a new archive; an existing file is replaced when it is saved
};

/// From 1, the fastest, to 9, the smallest; the default is 6. Other values are refused.
enum ZipCompressionLevel : int
{
    zipLevelDefault = -1,
    zipLevelStore = 0,
    zipLevelFastest = 1,
    zipLevelBest = 9
};

enum ZipExtractResult : int
{
    zipExtracted = 0,
    zipFailed = 1,
    zipSkipped =
        2 ///< by the callback, or cancelled, or an entry that is never extracted: an unsafe name, a link, a device
};

/// What CZipExtractCallback::OnExtractEntry returns; any other value stops, too.
constexpr int xZipExtractEntry = 0;
constexpr int xZipSkipEntry = 1;
constexpr int xZipStop = 2;

/// Why an operation of CZip failed.
enum class XZipFailure : unsigned int
{
    kNone,
    kSystem, ///< a file could not be read or written, or memory ran out
    kNoArchive,
    kDamaged,
    kUnsupported, ///< a method of compression or encryption, or a layout, that is not known here
    kMissingVolume,
    kPasswordNeeded,
    kWrongPassword,
    kWrongPasswordOrDamaged,
    kExists,   ///< the archive has an entry of that name
    kNotFound, ///< the archive has no such entry
    kUnsafeName,
    kSpecialFile, ///< a link, a device, ...
    kTooLarge,    ///< for the limits
    kReadOnly,
    kReplaced, ///< another program has changed or replaced the archive since it was opened
    kSkipped,  ///< by the callback
    kCancelled,
    kInvalidArgument, ///< also an operation that needs an open, or a closed, archive
};

/// An index that no entry has.
constexpr unsigned int xZipNoEntry = 0xFFFFFFFF;
