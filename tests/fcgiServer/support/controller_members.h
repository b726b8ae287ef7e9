// Access to the private members of a controller, through its memory layout.
#ifndef CONTROLLER_MEMBERS_H
#define CONTROLLER_MEMBERS_H

#include "servlet_controller.h"

#include <list>
#include <vector>

// Returns a member after the virtual table pointer: 0 is the session factory, 1 the servlet
// container, 2 the listener container, 3 the plug-in loader.
inline void* controllerMember(const ServletController& controller, int index) {
    return reinterpret_cast<void* const*>(&controller)[1 + index];
}

// Frees the listeners, which the container never does, so that tests can detect other leaks.
class ListenersOf {
public:
    explicit ListenersOf(const ServletController& controller) {
        auto* const* container = static_cast<void**>(controllerMember(controller, 2));
        m_listeners = *static_cast<const std::list<void*>*>(container[1]);
    }
    ~ListenersOf() {
        for (void* listener : m_listeners)
            ::operator delete(listener);
    }
    ListenersOf(const ListenersOf&) = delete;
    ListenersOf& operator=(const ListenersOf&) = delete;

private:
    std::list<void*> m_listeners;
};

#endif
