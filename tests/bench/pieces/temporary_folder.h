// A folder of its own, removed with everything in it.
#ifndef TEMPORARY_FOLDER_H
#define TEMPORARY_FOLDER_H

#include <string>

namespace pieces {

class TemporaryFolder {
public:
    // In TMPDIR, or /tmp. Ends the program when there can be none.
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    std::string path(const std::string& name) const { return m_path + "/" + name; }
    void write(const std::string& name, const std::string& content) const;

private:
    std::string m_path;
};

} // namespace pieces

#endif
