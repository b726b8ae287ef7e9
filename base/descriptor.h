// The owner of a file descriptor.
#ifndef BASE_DESCRIPTOR_H
#define BASE_DESCRIPTOR_H

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace base {

// Closes the descriptor that it owns when it is destroyed. One thread at a time.
class Descriptor {
public:
    // Takes ownership of `number`, which may be -1, so the result of open(2) can be passed at once.
    explicit Descriptor(int number = -1) : m_number(number) {}
    Descriptor(Descriptor&& other) noexcept : m_number(std::exchange(other.m_number, -1)) {}
    // Closes what it owned before.
    Descriptor& operator=(Descriptor&& other) noexcept {
        Descriptor moved(std::move(other));
        std::swap(m_number, moved.m_number);
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { close(); }

    // Returns the descriptor, which stays owned, or -1.
    int get() const { return m_number; }
    explicit operator bool() const { return m_number >= 0; }

    // Returns the descriptor, or -1, and leaves it to the caller.
    int release() { return std::exchange(m_number, -1); }

    // Closes the descriptor now. Returns false when the system reports that earlier writes failed;
    // the descriptor is gone in any case, even after EINTR (see close(2)).
    bool close() {
        const int number = std::exchange(m_number, -1);
        return number < 0 || ::close(number) == 0 || errno == EINTR;
    }

private:
    int m_number;
};

} // namespace base

#endif
