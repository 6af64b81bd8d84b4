// Wide texts and a graph of polymorphic objects with shared references through CXArchive, compared with other serializers.

#include "files/CXArchive.h"
#include "files/CXMemFile.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <memory>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#if __has_include(<cereal/cereal.hpp>)
#include <cereal/archives/binary.hpp>
#include <cereal/types/memory.hpp>
#include <cereal/types/polymorphic.hpp>
#include <cereal/types/string.hpp>
#include <cereal/types/vector.hpp>
#define TEVTOOLS_BENCH_CEREAL
#endif

#ifdef TEVTOOLS_BENCH_BOOST
#include <boost/archive/binary_iarchive.hpp>
#include <boost/archive/binary_oarchive.hpp>
#include <boost/serialization/base_object.hpp>
#include <boost/serialization/export.hpp>
#include <boost/serialization/string.hpp>
#include <boost/serialization/vector.hpp>
#endif

// Each object holds a number and refers to one other: every third one to an object that others share, the rest to none.
namespace
{
constexpr int kObjects = 200000;
constexpr int kShared = 16;
constexpr int kTexts = 100000;

constexpr bool RefersToShared(int i)
{
    return i >= kShared && i % 3 == 0;
}

std::wstring TextOf(int i)
{
    std::wstring text = L"property \u00E9\u20AC number ";
    return text + std::to_wstring(i) + std::wstring(static_cast<std::size_t>(i % 40), L'x');
}

class GraphNode : public CXObject
{
public:
    X_DECLARE_CLASS(GraphNode)
    void Serialize(CXArchive& archive) override
    {
        if (archive.IsStoring())
            archive << m_number << m_other;
        else
            archive >> m_number >> m_other;
    }
    int m_number = 0;
    CXObject* m_other = nullptr;
};
class GraphLeaf : public GraphNode
{
public:
    X_DECLARE_CLASS(GraphLeaf)
};
X_IMPLEMENT_CLASS(GraphNode, CXObject, 1)
X_IMPLEMENT_CLASS(GraphLeaf, GraphNode, 1)

void GraphOurs(benchmark::State& state)
{
    std::vector<std::unique_ptr<GraphNode>> graph;
    for (int i = 0; i < kObjects; ++i)
    {
        graph.push_back(i % 2 == 0 ? std::make_unique<GraphNode>() : std::make_unique<GraphLeaf>());
        graph.back()->m_number = i;
        graph.back()->m_other = RefersToShared(i) ? graph[static_cast<std::size_t>(i % kShared)].get() : nullptr;
    }
    for (auto _ : state)
    {
        CCustomMemFile file(CCustomMemFile::growProportionally);
        CXArchive storing(&file, xArchiveStore);
        for (const auto& node : graph)
            storing << node.get();
        storing.Close();
        file.SeekToBegin();
        CXArchive loading(&file, xArchiveLoad);
        std::vector<std::unique_ptr<CXObject>> loaded;
        for (int i = 0; i < kObjects; ++i)
            loaded.emplace_back(loading.ReadObject(nullptr));
        benchmark::DoNotOptimize(loaded.data());
    }
    state.SetItemsProcessed(state.iterations() * kObjects);
}

void TextsOurs(benchmark::State& state)
{
    std::vector<CXTString<wchar_t>> texts;
    for (int i = 0; i < kTexts; ++i)
        texts.emplace_back(TextOf(i).c_str());
    for (auto _ : state)
    {
        CCustomMemFile file(CCustomMemFile::growProportionally);
        CXArchive storing(&file, xArchiveStore);
        for (const auto& text : texts)
            storing << text;
        storing.Close();
        file.SeekToBegin();
        CXArchive loading(&file, xArchiveLoad);
        std::vector<CXTString<wchar_t>> loaded(kTexts);
        for (auto& text : loaded)
            loading >> text;
        benchmark::DoNotOptimize(loaded.data());
    }
    state.SetItemsProcessed(state.iterations() * kTexts);
}

BENCHMARK(GraphOurs)->Name("Archive/Graph/ours");
BENCHMARK(TextsOurs)->Name("Archive/WideTexts/ours");

// What the others do is the same: store everything into a stream in memory, load it from there.
template <class Writer, class Reader, class Data>
void StoreAndLoad(benchmark::State& state, const Data& data)
{
    for (auto _ : state)
    {
        std::stringstream stream;
        {
            Writer writer(stream);
            writer << data;
        }
        Reader reader(stream);
        Data loaded;
        reader >> loaded;
        benchmark::DoNotOptimize(loaded.data());
        benchmark::ClobberMemory();
        if constexpr (std::is_pointer_v<typename Data::value_type>)
        {
            for (auto* object : loaded)
                delete object;
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(data.size()));
}

template <class Writer, class Reader>
void Texts(benchmark::State& state)
{
    std::vector<std::wstring> texts;
    for (int i = 0; i < kTexts; ++i)
        texts.push_back(TextOf(i));
    StoreAndLoad<Writer, Reader>(state, texts);
}
} // namespace

#ifdef TEVTOOLS_BENCH_CEREAL
struct CerealNode
{
    virtual ~CerealNode() = default;
    template <class Archive>
    void serialize(Archive& archive)
    {
        archive(m_number, m_other);
    }
    int m_number = 0;
    std::shared_ptr<CerealNode> m_other;
};
struct CerealLeaf : CerealNode
{
    template <class Archive>
    void serialize(Archive& archive)
    {
        CerealNode::serialize(archive);
    }
};
CEREAL_REGISTER_TYPE(CerealNode)
CEREAL_REGISTER_TYPE(CerealLeaf)
CEREAL_REGISTER_POLYMORPHIC_RELATION(CerealNode, CerealLeaf)

namespace
{
void GraphCereal(benchmark::State& state)
{
    std::vector<std::shared_ptr<CerealNode>> graph;
    for (int i = 0; i < kObjects; ++i)
    {
        graph.push_back(i % 2 == 0 ? std::make_shared<CerealNode>() : std::make_shared<CerealLeaf>());
        graph.back()->m_number = i;
        if (RefersToShared(i))
            graph.back()->m_other = graph[static_cast<std::size_t>(i % kShared)];
    }
    StoreAndLoad<cereal::BinaryOutputArchive, cereal::BinaryInputArchive>(state, graph);
}
BENCHMARK(GraphCereal)->Name("Archive/Graph/cereal");
BENCHMARK(Texts<cereal::BinaryOutputArchive, cereal::BinaryInputArchive>)->Name("Archive/WideTexts/cereal");
} // namespace
#endif

#ifdef TEVTOOLS_BENCH_BOOST
struct BoostNode
{
    virtual ~BoostNode() = default;
    template <class Archive>
    void serialize(Archive& archive, unsigned)
    {
        archive& m_number& m_other;
    }
    int m_number = 0;
    BoostNode* m_other = nullptr;
};
struct BoostLeaf : BoostNode
{
    template <class Archive>
    void serialize(Archive& archive, unsigned)
    {
        archive& boost::serialization::base_object<BoostNode>(*this);
    }
};
BOOST_CLASS_EXPORT(BoostNode)
BOOST_CLASS_EXPORT(BoostLeaf)

namespace
{
void GraphBoost(benchmark::State& state)
{
    std::vector<BoostNode*> graph;
    for (int i = 0; i < kObjects; ++i)
    {
        graph.push_back(i % 2 == 0 ? new BoostNode : new BoostLeaf);
        graph.back()->m_number = i;
        graph.back()->m_other = RefersToShared(i) ? graph[static_cast<std::size_t>(i % kShared)] : nullptr;
    }
    StoreAndLoad<boost::archive::binary_oarchive, boost::archive::binary_iarchive>(state, graph);
    for (const BoostNode* node : graph)
        delete node;
}
BENCHMARK(GraphBoost)->Name("Archive/Graph/Boost.Serialization");
BENCHMARK(Texts<boost::archive::binary_oarchive, boost::archive::binary_iarchive>)
    ->Name("Archive/WideTexts/Boost.Serialization");
} // namespace
#endif
