// Compares the hash map with std::unordered_map, with keys like those of the session table. Times
// are per entry.
#include "pieces.h"

#include "QKSTL/QKHashMap.h"

#include <memory>
#include <unordered_map>
#include <vector>

namespace {

using namespace pieces;

// Entries of one iteration, in as many maps as they fill: the clock is too coarse for ten entries.
constexpr long kEntries = 10000;

using Keys = std::vector<std::string>;

class Ours {
public:
    static constexpr const char* kSubject = "ours";

    void insert(const std::string& key) { m_map.put(key, nullptr); }
    bool holds(const std::string& key) const { return m_map.getAssoc(key) != nullptr; }
    void remove(const std::string& key) { m_map.removeAssoc(m_map.getAssoc(key)); }
    long visitAll() const {
        long count = 0;
        for (auto* entry = m_map.firstAssoc(); entry != nullptr; entry = m_map.nextAssoc(entry)) {
            benchmark::DoNotOptimize(entry->value);
            ++count;
        }
        return count;
    }

private:
    QKHashMap<std::string, void*, INT_HASH<std::string>> m_map;
};

class Standard {
public:
    static constexpr const char* kSubject = "unordered_map";

    void insert(const std::string& key) { m_map.insert_or_assign(key, nullptr); }
    bool holds(const std::string& key) const { return m_map.find(key) != m_map.end(); }
    void remove(const std::string& key) { m_map.erase(m_map.find(key)); }
    long visitAll() const {
        long count = 0;
        for (const auto& entry : m_map) {
            benchmark::DoNotOptimize(entry.second);
            ++count;
        }
        return count;
    }

private:
    std::unordered_map<std::string, void*> m_map;
};

Keys keysOf(long size) {
    Keys keys;
    for (long i = 0; i < size; ++i)
        keys.push_back("7ffd3a" + std::to_string(1719320 + i * 7919) + "55d0c");
    return keys;
}

template <class Map>
using Maps = std::vector<std::unique_ptr<Map>>;

template <class Map>
Maps<Map> emptyMaps(long size) {
    Maps<Map> maps;
    for (long i = 0; i < kEntries / size; ++i)
        maps.push_back(std::make_unique<Map>());
    return maps;
}

template <class Map>
void fill(Maps<Map>& maps, const Keys& keys) {
    for (auto& map : maps)
        for (const std::string& key : keys)
            map->insert(key);
}

template <class Map>
void insertAll(benchmark::State& state, long size) {
    const Keys keys = keysOf(size);
    AllocationCounter counter(state);
    while (state.KeepRunningBatch(kEntries)) {
        counter.pause();
        Maps<Map> maps = emptyMaps<Map>(size);
        counter.resume();
        fill(maps, keys);
        counter.pause();
        maps.clear();
        counter.resume();
    }
}

template <class Map>
void findAll(benchmark::State& state, long size) {
    const Keys keys = keysOf(size);
    Maps<Map> maps = emptyMaps<Map>(size);
    fill(maps, keys);
    const AllocationCounter counter(state);
    while (state.KeepRunningBatch(kEntries))
        for (const auto& map : maps)
            for (const std::string& key : keys)
                benchmark::DoNotOptimize(map->holds(key));
}

template <class Map>
void iterate(benchmark::State& state, long size) {
    Maps<Map> maps = emptyMaps<Map>(size);
    fill(maps, keysOf(size));
    const AllocationCounter counter(state);
    while (state.KeepRunningBatch(kEntries))
        for (const auto& map : maps)
            benchmark::DoNotOptimize(map->visitAll());
}

template <class Map>
void removeAll(benchmark::State& state, long size) {
    const Keys keys = keysOf(size);
    Maps<Map> maps = emptyMaps<Map>(size);
    AllocationCounter counter(state);
    while (state.KeepRunningBatch(kEntries)) {
        counter.pause();
        fill(maps, keys);
        counter.resume();
        for (auto& map : maps)
            for (const std::string& key : keys)
                map->remove(key);
    }
}

template <class Map>
void addAll(long size) {
    using Run = void (*)(benchmark::State&, long);
    const std::pair<const char*, Run> operations[] = {{"map/insert", insertAll<Map>},
                                                      {"map/look up", findAll<Map>},
                                                      {"map/iterate", iterate<Map>},
                                                      {"map/remove", removeAll<Map>}};
    for (const auto& [operation, run] : operations)
        benchmark::RegisterBenchmark(nameOf(operation, size, Map::kSubject).c_str(), run, size);
}

} // namespace

void pieces::addMap() {
    for (const long size : {10, 100, 1000, 10000}) {
        addAll<Ours>(size);
        addAll<Standard>(size);
    }
}
