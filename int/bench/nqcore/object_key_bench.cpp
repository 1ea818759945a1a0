// Finding the key of a text that is interned already, by one and by two threads, against Boost's flyweight and a Qt set
// with a mutex. Every implementation gives back something that holds the text, and drops it again.
#include "nqcore/object_key.h"

#include <benchmark/benchmark.h>
#include <QByteArray>
#include <QMutex>
#include <QMutexLocker>
#include <QSet>
#include <boost/flyweight.hpp>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

namespace {

using Flyweight = boost::flyweight<std::string>;

constexpr std::size_t s_count = 1024;

// What a server keys its connections by: names of 16 characters that begin alike.
const std::vector<std::string>& texts() {
    static const std::vector<std::string> s_texts = [] {
        std::mt19937 random(1);
        std::vector<std::string> made;
        for (std::size_t i = 0; i < s_count; ++i) {
            made.push_back("node-" + std::to_string(10'000'000'000 + random()));
            made.back().resize(16, 'x');
        }
        return made;
    }();
    return s_texts;
}

struct OfLibrary {
    std::vector<nqcore::StringKey> held;

    OfLibrary() {
        for (const std::string& text : texts()) {
            held.push_back(nqcore::StringKey::from_string(text));
        }
    }
    auto find(std::size_t index) const { return nqcore::StringKey::from_string(texts()[index]); }
    static const char* shared(const nqcore::StringKey& key) { return key.value().data(); }
};

struct OfBoost {
    std::vector<Flyweight> held;

    OfBoost() : held(texts().begin(), texts().end()) {}
    auto find(std::size_t index) const { return Flyweight(texts()[index]); }
    static const char* shared(const Flyweight& key) { return key.get().data(); }
};

struct OfQt {
    std::vector<QByteArray> asked;
    QSet<QByteArray> held;
    mutable QMutex mutex;

    OfQt() {
        for (const std::string& text : texts()) {
            asked.push_back(QByteArray::fromStdString(text));
            held.insert(QByteArray::fromStdString(text));
        }
    }
    QByteArray find(std::size_t index) const {
        const QMutexLocker lock(&mutex);
        return *held.constFind(asked[index]);
    }
    static const char* shared(const QByteArray& key) { return key.constData(); }
};

template <class Table>
void find(benchmark::State& state) {
    static const Table s_table;
    for (std::size_t i = 0; i < s_count; ++i) {
        const auto first = s_table.find(i);
        const auto second = s_table.find(i);
        if (Table::shared(first) != Table::shared(second) || Table::shared(first) != texts()[i]) {
            std::abort();
        }
    }
    // Each thread in an order of its own.
    std::size_t index = static_cast<std::size_t>(state.thread_index()) * 311;
    for (auto _ : state) {
        index = (index * 5 + 1) % s_count;
        const auto found = s_table.find(index);
        benchmark::DoNotOptimize(&found);
    }
}

BENCHMARK(find<OfLibrary>)->Name("object_key/find/nqcore/16")->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(find<OfBoost>)->Name("object_key/find/flyweight/16")->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(find<OfQt>)->Name("object_key/find/QSet+QMutex/16")->Threads(1)->Threads(2)->UseRealTime();

}  // namespace
