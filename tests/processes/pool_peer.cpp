// Attaches to the pool in a region and runs the script of operations on it: pool_peer <region> <handle>...
// or formats it: pool_peer <region> format

#include <cstdlib>
#include <string>

#include "corvalen/rpc/SharedMemory.h"
#include "tests/support/PoolScript.h"

int main(int argc, char** argv) {
    using System::RPC::MemoryPool;
    std::string const name = argc > 1 ? argv[1] : "";
    System::RPC::SharedMemory region(
        std::u16string(name.begin(), name.end()).c_str(),
        MemoryPool::CalculateSize(Support::PoolScript::kBlockSize, Support::PoolScript::kBlockCount));
    if (!region.IsValid()) {
        return 2;
    }
    if (argc > 2 && argv[2] == std::string("format")) {
        MemoryPool const fresh(Support::PoolScript::kBlockSize, Support::PoolScript::kBlockCount,
                               region.Data());
        return 0;
    }
    MemoryPool pool(region.Data());
    Support::PoolScript script(pool);
    for (int i = 2; i < argc; ++i) {
        script.Known().push_back(static_cast<std::uint32_t>(std::strtoul(argv[i], nullptr, 10)));
    }
    script.Run();
    return 0;
}
