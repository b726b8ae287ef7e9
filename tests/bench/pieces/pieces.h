// Registers the benchmarks of this program.
//
// A name is GROUP/OPERATION/SIZE/SUBJECT. The subject "ours" is compared with other subjects of the
// same GROUP/OPERATION/SIZE; SIZE is the number of entries, parameters, rows or bytes handled.
#ifndef PIECES_H
#define PIECES_H

#include "allocations.h"

#include <benchmark/benchmark.h>

#include <string>
#include <utility>

namespace pieces {

// Each function registers the benchmarks of one group.
void addMap();
void addRequest();
void addHeaders();
void addSession();
void addMemory();
void addScreening();
void addTemplate();
void addDecode();
void addUpload();

inline std::string nameOf(const std::string& operation, long size, const std::string& subject) {
    return operation + "/" + std::to_string(size) + "/" + subject;
}

// Adds a benchmark of `step`, which performs the operation once.
template <class Step>
benchmark::internal::Benchmark* add(const std::string& operation, long size,
                                    const std::string& subject, Step step) {
    const auto run = [step](benchmark::State& state) {
        const AllocationCounter counter(state);
        for (auto each : state) {
            static_cast<void>(each);
            step();
        }
    };
    return benchmark::RegisterBenchmark(nameOf(operation, size, subject).c_str(), run);
}

} // namespace pieces

#endif
