// Where the file of an upload goes.
#ifndef UPLOAD_FILE_H
#define UPLOAD_FILE_H

#include "base/descriptor.h"
#include "base/replacement_file.h"

#include <cstddef>
#include <string>
#include <vector>

namespace cgi {

// Calls come in this order: begin() once, append() any number of times, keep() once. After an
// answer of false, and without keep(), nothing is kept.
class UploadTarget {
public:
    virtual ~UploadTarget() = default;
    virtual bool begin() = 0;
    virtual bool append(const char* data, std::size_t size) = 0;
    // The upload is complete: makes the data final.
    virtual bool keep() = 0;
};

// Collects the data in a new file beside `path`, with a name that begins with a dot, and puts it
// in place of whatever file stands at `path` when it is complete and on the disk. Until then, and
// on any failure, `path` stays as it was, and the destructor removes the new file. The folder must
// exist and be readable and writable. Any number of uploads may go to one path at once: the one
// that ends last stays.
class UploadFile final : public UploadTarget {
public:
    explicit UploadFile(const char* path);

    bool begin() override;
    bool append(const char* data, std::size_t size) override;
    bool keep() override;

private:
    bool createTemporary();
    bool flush();

    std::string m_folderPath; // with the slash at its end, or "." when `path` has none
    std::string m_name;
    base::Descriptor m_folder;
    base::ReplacementFile m_file; // destroyed before the folder is closed, which it needs
    std::vector<char> m_unwritten;
};

} // namespace cgi

#endif
