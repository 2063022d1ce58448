#include <unistd.h>

#include <boost/interprocess/managed_shared_memory.hpp>
#include <boost/interprocess/mem_algo/rbtree_best_fit.hpp>
#include <boost/interprocess/mem_algo/simple_seq_fit.hpp>
#include <memory>

#include "bench/pool/PoolBench.h"

namespace Bench {

namespace {

namespace ipc = boost::interprocess;

template <typename Algorithm>
using Segment = ipc::basic_managed_shared_memory<char, Algorithm, ipc::iset_index>;

template <typename Algorithm>
Heap MakeHeap(char const* name) {
    std::string const object = std::string("corvalen_bench_") + name + std::to_string(::getpid());
    ipc::shared_memory_object::remove(object.c_str());
    auto const segment = std::make_shared<Segment<Algorithm>>(ipc::create_only, object.c_str(), kHeapSize);
    // The mapping stays; so nothing is left behind, however the program ends.
    ipc::shared_memory_object::remove(object.c_str());
    return {std::string("boost ") + name,
            [segment](std::uint32_t size) {
                void* const block = segment->allocate(size, std::nothrow);
                return static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(block));
            },
            [segment](std::uint64_t block) {
                segment->deallocate(reinterpret_cast<void*>(static_cast<std::uintptr_t>(block)));
            }};
}

}  // namespace

std::vector<Heap> BoostHeaps() {
    return {MakeHeap<ipc::rbtree_best_fit<ipc::mutex_family>>("rbtree_best_fit"),
            MakeHeap<ipc::simple_seq_fit<ipc::mutex_family>>("simple_seq_fit")};
}

}  // namespace Bench
