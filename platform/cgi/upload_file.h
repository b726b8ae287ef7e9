// Destinations for the file of an upload.
#ifndef UPLOAD_FILE_H
#define UPLOAD_FILE_H

#include "base/descriptor.h"
#include "base/replacement_file.h"

#include <cstddef>
#include <string>
#include <vector>

namespace cgi {

// Receives the data of one file. Call begin() once, then append() any number of times, then keep()
// once, when the upload is complete. The data become final in keep() only: without it, or after any
// function has returned false, nothing is kept. Call nothing more after that.
class UploadTarget {
public:
    virtual ~UploadTarget() = default;
    virtual bool begin() = 0;
    virtual bool append(const char* data, std::size_t size) = 0;
    virtual bool keep() = 0;
};

// Collects the data in a new file in the folder of `path`, under a name that begins with a dot.
// When the data are complete and on the disk, that file replaces whatever file is at `path`. Until
// then, and on any failure, `path` stays as it was, and the destructor removes the new file. The
// folder must exist and be readable and writable. Any number of uploads may go to one path at once:
// the one that ends last stays.
class UploadFile final : public UploadTarget {
public:
    // Copies `path`, which must not be null.
    explicit UploadFile(const char* path);

    bool begin() override;
    bool append(const char* data, std::size_t size) override;
    bool keep() override;

private:
    bool createTemporary();
    bool flush();

    std::string m_folderPath; // ends in a slash, or is "." when `path` has none
    std::string m_name;
    base::Descriptor m_folder;
    base::ReplacementFile m_file; // behind m_folder: its destructor needs the folder
    std::vector<char> m_unwritten;
};

} // namespace cgi

#endif
