#pragma once

#include "files/CXArchive.h"
#include "files/CXMemFile.h"
#include "tests/support/FileFailure.h"

namespace tev::test
{
using Bytes = std::vector<unsigned char>;

inline Bytes operator+(Bytes left, const Bytes& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

/// The bytes of some objects in one archive.
template <class... T>
Bytes Stored(T&... serializables)
{
    CXMemFile file;
    CXArchive archive(&file, xArchiveStore);
    (serializables.Serialize(archive), ...);
    archive.Close();
    return {file.GetBuffer(), file.GetBuffer() + file.GetLength()};
}

/// What loading from these bytes throws, as Thrown returns it. Where it throws nothing, it must have read them all.
template <class T>
int ThrownByLoading(T& serializable, const Bytes& bytes)
{
    CXMemFile file(bytes.data(), bytes.size(), false);
    CXArchive archive(&file, xArchiveLoad);
    const int thrown = Thrown<CXArchiveException>([&] { serializable.Serialize(archive); });
    archive.Close();
    EXPECT_TRUE(thrown != kNothingThrown || file.GetPosition() == bytes.size());
    return thrown;
}
} // namespace tev::test
