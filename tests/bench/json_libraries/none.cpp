// What every library is measured with and without: the functions' frame.
#include "libraries.h"

long readTask(const char*, std::size_t) {
    return -1;
}

std::size_t writeTasks(std::size_t) {
    return 0;
}
