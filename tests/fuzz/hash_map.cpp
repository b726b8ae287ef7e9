// Applies arbitrary operations to the hash map and to a model, a vector of lists.
#include "QKSTL/QKHashMap.h"
#include "fuzz.h"

#include <list>
#include <vector>

namespace {

using fuzz::require;
using Map = QKHashMap<std::string, std::string, INT_HASH<std::string>>;
using Node = Map::TAssoc;

struct Entry {
    std::string key;
    std::string value;
};

class Model {
public:
    explicit Model(std::size_t buckets, bool multiValue)
        : m_buckets(buckets), m_multiValue(multiValue) {}

    void put(const std::string& key, const std::string& value) {
        std::list<Entry>& bucket = bucketOf(key);
        const auto known = find(bucket, key);
        if (known == bucket.end())
            bucket.push_front({key, value});
        else if (m_multiValue)
            bucket.insert(std::next(known), {key, value});
        else
            known->value = value;
    }
    // Returns null if the key is unknown.
    const Entry* first(const std::string& key) {
        std::list<Entry>& bucket = bucketOf(key);
        const auto known = find(bucket, key);
        return known != bucket.end() ? &*known : nullptr;
    }
    void remove(const std::string& key) {
        std::list<Entry>& bucket = bucketOf(key);
        const auto known = find(bucket, key);
        if (known != bucket.end())
            bucket.erase(known);
    }
    void clear() {
        for (auto& bucket : m_buckets)
            bucket.clear();
    }
    std::vector<Entry> entries() const {
        std::vector<Entry> all;
        for (const auto& bucket : m_buckets)
            all.insert(all.end(), bucket.begin(), bucket.end());
        return all;
    }

private:
    std::list<Entry>& bucketOf(const std::string& key) {
        std::uint64_t hash = 0;
        for (const unsigned char byte : fuzz::upToZero(key))
            hash = (hash * 131 + byte) % 0x80000000;
        return m_buckets[hash % m_buckets.size()];
    }
    static std::list<Entry>::iterator find(std::list<Entry>& bucket, const std::string& key) {
        auto at = bucket.begin();
        while (at != bucket.end() && at->key != key)
            ++at;
        return at;
    }

    std::vector<std::list<Entry>> m_buckets;
    const bool m_multiValue;
};

void requireSame(const Map& map, const Model& model) {
    map.assertValid();
    const std::vector<Entry> entries = model.entries();
    require(map.m_nCount == static_cast<int>(entries.size()),
            "the map has as many entries as the model");
    const Node* node = map.firstAssoc();
    for (const Entry& entry : entries) {
        require(node != nullptr && node->key == entry.key && node->value == entry.value,
                "the entries come in the order of the model");
        node = map.nextAssoc(node);
    }
    require(node == nullptr, "the map has no other entries");
    require(map.m_nCount > 0 || (map.m_pBlocks == nullptr && map.m_pFreeList == nullptr),
            "an empty map has no memory");
}

void lookUp(const Map& map, Model& model, const std::string& key) {
    const Node* node = map.getAssoc(key);
    const Entry* entry = model.first(key);
    require((node != nullptr) == (entry != nullptr), "a key is found if the map has it");
    require(entry == nullptr || entry->value == node->value, "the first entry of a key is found");
    require(map.getAssoc(std::string_view(key)) == node,
            "a look-up by std::string_view finds the same entry");
}

void remove(Map& map, Model& model, const std::string& key) {
    if (Node* node = map.getAssoc(key)) {
        const Node* following = map.nextAssoc(node);
        const bool wasLast = map.m_nCount == 1;
        require(map.removeAssoc(node) == following || wasLast,
                "removing an entry returns the next one");
    }
    model.remove(key);
}

void touch(Map& map, Model& model, const std::string& key) {
    std::string& value = map[key];
    if (model.first(key) == nullptr)
        model.put(key, "");
    require(value == model.first(key)->value,
            "operator[] returns the value of a key, or a new empty one");
}

} // namespace

// One byte for the number of buckets, one that allows several values per key; then, for each
// operation, one byte and a line with the key.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const unsigned buckets = input.byte() % 16 + 1;
    Map map;
    map.m_bMultiValue = input.byte() == 'm';
    map.init(buckets, buckets % 2 == 0);
    Model model(buckets, map.m_bMultiValue);
    for (int step = 0; !input.isEmpty(); ++step) {
        const unsigned operation = input.byte();
        const std::string key = input.line();
        if (operation == 'c') {
            map.clear();
            model.clear();
        } else if (operation == 'r') {
            remove(map, model, key);
        } else if (operation == 't') {
            touch(map, model, key);
        } else if (operation == 'l') {
            lookUp(map, model, key);
        } else {
            const std::string value = std::to_string(step);
            operation == 'i' ? map.insert(key, value) : map.put(key, value);
            model.put(key, value);
        }
    }
    requireSame(map, model);
    return 0;
}
