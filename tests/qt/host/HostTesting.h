#pragma once

#include "examples/host/model/ModelFile.h"
#include "examples/host/model/Renderer.h"
#include "examples/host/model/Scene.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <string>

namespace host
{
namespace fs = std::filesystem;

/// A new folder for each test.
class HostTest : public testing::Test
{
protected:
    HostTest() : m_folder(fileCreateTemporaryFolder(L"hosttest")) { RegisterFileTypes(); }
    ~HostTest() override { fs::remove_all(fs::path(m_folder)); }

    CPathString Write(const wchar_t* name, const std::string& bytes) const
    {
        const CPathString path = m_folder / name;
        fs::create_directories(fs::path(path).parent_path());
        std::ofstream(fs::path(path), std::ios::binary) << bytes;
        return path;
    }
    static CPathString Sample(const wchar_t* name)
    {
        return CPathString(fs::path(TEVTOOLS_SOURCE_DIR) / "examples/data" / fs::path(CPathString(name)));
    }

    const CPathString m_folder;
};

/// What the call throws, as text; empty when it throws nothing.
template <class Call>
std::string ThrownText(const Call& call)
{
    try
    {
        call();
    }
    catch (CXException* e)
    {
        const std::string text = std::string(e->GetRuntimeClassDescriptor()->m_name) + ": " +
                                 CXTString<char>(XGetExceptionText(e)).GetConstBuffer();
        e->Delete();
        return text;
    }
    return {};
}
} // namespace host
