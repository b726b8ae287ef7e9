// A temporary folder, removed with its content by the destructor.
#ifndef TEMPORARY_FOLDER_H
#define TEMPORARY_FOLDER_H

#include <string>

namespace pieces {

class TemporaryFolder {
public:
    // Creates it in $TMPDIR or /tmp. Ends the program on failure.
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
