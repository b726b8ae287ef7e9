// The owner of one file descriptor.
#ifndef DESCRIPTOR_H
#define DESCRIPTOR_H

#include <unistd.h>

#include <utility>

class Descriptor {
public:
    // -1: none.
    explicit Descriptor(int fd = -1) : m_fd(fd) {}
    Descriptor(Descriptor&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(m_fd, other.m_fd);
        return *this;
    }
    ~Descriptor() {
        if (m_fd >= 0)
            ::close(m_fd);
    }

    int get() const { return m_fd; }
    explicit operator bool() const { return m_fd >= 0; }

private:
    int m_fd;
};

#endif
