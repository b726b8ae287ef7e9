// Keeps the state, except who may sign in, so that a setting is saved without the contacts.
#ifndef MODEL_STATE_STORE_H
#define MODEL_STATE_STORE_H

#include "model/state.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

namespace phone {

// Two files: the state file with everything, and beside it "changes.xml" with the settings that
// were saved since, together with the checksum of the state file to which they belong. A change of
// settings replaces the small file. Any other change, and one for which the small file has no room,
// replaces the state file, by which the small file ceases to count. So each save replaces one file,
// and is done as a whole or not at all. One thread at a time.
class StateStore {
public:
    // The most that "changes.xml" takes: two sectors of a disk.
    static constexpr std::size_t kMaxChangesBytes = 1024;

    // Reserved in it for the settings of the audio page, which are changed most often: they always
    // have room.
    static constexpr std::size_t kAudioBytes = 256;

    // `path` is that of the state file.
    explicit StateStore(std::string path);

    // Returns the state, or null if there is no valid state file. A damaged file is renamed to end
    // in ".damaged", and logged; without "changes.xml", the settings are those of the state file.
    // Throws std::runtime_error if a file exists but cannot be read, and std::bad_alloc: then
    // nothing was changed. Removes what an interrupted save left behind.
    std::unique_ptr<State> load();

    // Saves `state`. `saved` is the state that load() returned or save() saved last, or null.
    // Returns false (logged), or throws std::bad_alloc, if that one stays.
    bool save(const State& state, const State* saved);

    // Returns whether `state` needs no saving, because it is as `saved` was.
    bool isSaved(const State& state, const State* saved) const;

private:
    // What the state file contains, without the contacts.
    struct Base {
        unsigned long checksum;
        Settings settings;
    };

    void loadChanges(unsigned long checksum, Settings& settings) const;
    bool haveRoom(const Settings& settings) const;
    bool saveAll(const State& state);

    const std::string m_path;
    const std::string m_changes;
    std::optional<Base> m_base; // nothing if the next save must replace the state file
};

} // namespace phone

#endif
