// Prints what a page costs beyond an empty one, without a web server: microseconds and allocations.
//     page_speed URL [REQUESTS]
#include <HttpServlet.h>
#include <kit/plugin.h>
#include <kit/testing/runner.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <new>
#include <string>

using namespace kit::testing;

extern "C" HttpServlet* createWelcomePage();

namespace {

std::atomic<long> allocations{0};

class EmptyPage final : public kit::Page {
    void answer(kit::Request&, kit::Response& response) override { response.text(""); }
};

struct Cost {
    double microseconds;
    double allocations;
};

Cost costOf(Runner& page, const Request& request, int requests) {
    page.serve(request); // reads the template and creates what is kept
    const long before = allocations;
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < requests; ++i) {
        page.serve(request);
    }
    const std::chrono::duration<double, std::micro> taken =
        std::chrono::steady_clock::now() - begin;
    return {taken.count() / requests, double(allocations - before) / requests};
}

} // namespace

void* operator new(std::size_t size) {
    ++allocations;
    if (void* memory = std::malloc(size)) {
        return memory;
    }
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

int main(int argc, char** argv) {
    const std::string url = argc > 1 ? argv[1] : "/servlet?p=welcome";
    const int requests = argc > 2 ? std::atoi(argv[2]) : 20000;
    const Request request = get(url).variable("DOCUMENT_ROOT", DOCUMENT_ROOT);
    ServletRunner empty([] { return kit::newServlet(std::make_unique<EmptyPage>()); });
    ServletRunner page(createWelcomePage);
    const Cost base = costOf(empty, request, requests);
    const Cost cost = costOf(page, request, requests);
    std::cout << url << ": " << cost.microseconds - base.microseconds << " microseconds and "
              << cost.allocations - base.allocations << " allocations more than an empty page\n";
}
