// CRegUtil compared with what a program would keep its settings in instead. Each benchmark counts values.

#include "settings/CRegUtil.h"
#include "tests/support/TestRegistry.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#if __has_include(<dconf.h>)
#include <dconf.h> // before Qt, whose macros its names are
#define TEV_BENCH_DCONF
#endif
#if __has_include(<QSettings>)
#include <QSettings>
#define TEV_BENCH_QT
#endif

namespace
{
using tev::test::TestRegistry;

constexpr int kValues = 100; // in one key
constexpr int kWrites = 10000;
constexpr const wchar_t* kPath = L"HKEY_CURRENT_USER\\Software\\Maker\\Program";

std::vector<std::wstring> WideNames()
{
    std::vector<std::wstring> names;
    for (int i = 0; i < kValues; ++i)
        names.push_back(L"value" + std::to_wstring(i));
    return names;
}

class Ours
{
public:
    explicit Ours(bool open)
    {
        m_settings.SetPath(kPath, true);
        m_settings.OpenBase(false);
        for (int i = 0; i < kValues; ++i)
            Write(i, i);
        if (!open)
            m_settings.CloseBase();
    }
    bool Read(int i, int& value)
    {
        unsigned long read = 0;
        const bool found = m_settings.GetKeyInt(m_names[static_cast<std::size_t>(i)].c_str(), read);
        value = static_cast<int>(read);
        return found;
    }
    bool Write(int i, int value)
    {
        return m_settings.WriteKeyInt(m_names[static_cast<std::size_t>(i)].c_str(), static_cast<unsigned long>(value));
    }
    void Start() { m_settings.StartBatch(); }
    bool Finish() { return m_settings.EndBatch(); }

private:
    TestRegistry m_registry;
    CRegUtil m_settings{CRegUtil::kAllAccess};
    std::vector<std::wstring> m_names = WideNames();
};

#ifdef TEV_BENCH_QT
/// Without an open base the object is made anew for each operation.
class Qt
{
public:
    explicit Qt(bool open) : m_open(open)
    {
        for (int i = 0; i < kValues; ++i)
        {
            m_names.push_back(QStringLiteral("Software/Maker/Program/value%1").arg(i));
            Write(i, i);
        }
        m_settings->sync();
    }
    bool Read(int i, int& value)
    {
        const QVariant found = Settings().value(m_names[static_cast<std::size_t>(i)]);
        value = found.toInt();
        return found.isValid();
    }
    bool Write(int i, int value)
    {
        m_settings->setValue(m_names[static_cast<std::size_t>(i)], value);
        return true;
    }
    void Start() {}
    bool Finish()
    {
        m_settings->sync();
        return m_settings->status() == QSettings::NoError;
    }

private:
    QSettings& Settings()
    {
        if (!m_open)
            m_settings = std::make_unique<QSettings>(m_file, QSettings::IniFormat);
        return *m_settings;
    }

    tev::test::TempFolder m_folder;
    bool m_open;
    QString m_file = QString::fromStdString(m_folder.Path("settings.ini").string());
    std::unique_ptr<QSettings> m_settings = std::make_unique<QSettings>(m_file, QSettings::IniFormat);
    std::vector<QString> m_names;
};
#endif

#ifdef TEV_BENCH_DCONF
/// Reads only: writing goes through a service of the desktop's session. Without an open base the client is made anew for
/// each operation.
class Dconf
{
public:
    explicit Dconf(bool open) : m_open(open)
    {
        static const Database database; // the library looks for its files once
        for (int i = 0; i < kValues; ++i)
            m_names.push_back("/maker/program/value" + std::to_string(i));
        m_client = dconf_client_new();
    }
    ~Dconf() { g_object_unref(m_client); }
    Dconf(const Dconf&) = delete;
    Dconf& operator=(const Dconf&) = delete;

    bool Read(int i, int& value)
    {
        if (!m_open)
        {
            g_object_unref(m_client);
            m_client = dconf_client_new();
        }
        GVariant* const found = dconf_client_read(m_client, m_names[static_cast<std::size_t>(i)].c_str());
        if (found == nullptr)
            return false;
        value = g_variant_get_int32(found);
        g_variant_unref(found);
        return true;
    }

private:
    struct Database
    {
        Database()
        {
            std::string keys = "[maker/program]\n";
            for (int i = 0; i < kValues; ++i)
                keys += "value" + std::to_string(i) + "=" + std::to_string(i) + "\n";
            m_folder.WriteFile("keys/all", keys);
            m_folder.WriteFile("profile", "user-db:bench\n");
            m_folder.WriteFile("dconf/empty", "");
            setenv("XDG_CONFIG_HOME", m_folder.Path().c_str(), 1);
            setenv("DCONF_PROFILE", m_folder.Path("profile").c_str(), 1);
            const std::string file = m_folder.Path("dconf/bench").string();
            if (std::system(("dconf compile " + file + " " + m_folder.Path("keys").string()).c_str()) != 0)
                std::fputs("the program dconf is missing\n", stderr);
        }
        tev::test::TempFolder m_folder;
    };

    bool m_open;
    DConfClient* m_client = nullptr;
    std::vector<std::string> m_names;
};
#endif

template <class STORE>
void Read(benchmark::State& state, bool open)
{
    STORE store(open);
    int i = 0;
    for (auto _ : state)
    {
        int value = -1;
        if (!store.Read(i, value) || value != i)
            return state.SkipWithError("a value is not there");
        i = (i + 1) % kValues;
    }
    state.SetItemsProcessed(state.iterations());
}

/// Until all is in the file; one by one, or together.
template <class STORE>
void Write(benchmark::State& state, bool together)
{
    STORE store(true);
    int value = 0;
    for (auto _ : state)
    {
        if (together)
            store.Start();
        for (int i = 0; i < kWrites; ++i)
        {
            if (!store.Write(i % kValues, ++value))
                return state.SkipWithError("a value was not written");
        }
        if (together && !store.Finish())
            return state.SkipWithError("the values were not written");
    }
    state.SetItemsProcessed(state.iterations() * kWrites);
}

template <class STORE>
void RegisterReads(const std::string& who)
{
    benchmark::RegisterBenchmark(("Registry/ReadOpen/" + who).c_str(), Read<STORE>, true);
    benchmark::RegisterBenchmark(("Registry/ReadClosed/" + who).c_str(), Read<STORE>, false);
}

template <class STORE>
void Register(const std::string& who)
{
    RegisterReads<STORE>(who);
    benchmark::RegisterBenchmark(("Registry/Write10000Together/" + who).c_str(), Write<STORE>, true)->UseRealTime();
}

[[maybe_unused]] const bool g_registered = [] {
    Register<Ours>("ours");
    benchmark::RegisterBenchmark("Registry/Write10000/ours", Write<Ours>, false)->UseRealTime();
#ifdef TEV_BENCH_QT
    Register<Qt>("QSettings");
#endif
#ifdef TEV_BENCH_DCONF
    RegisterReads<Dconf>("dconf");
#endif
    return true;
}();
} // namespace
