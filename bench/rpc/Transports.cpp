#include "bench/rpc/Transport.h"

namespace Bench {

std::vector<std::unique_ptr<Transport>> AllTransports() {
    std::vector<std::unique_ptr<Transport>> all;
    all.push_back(MakeOwn());
    all.push_back(MakePipe());
    all.push_back(MakeSeqPacket());
    all.push_back(MakeRawFutex());
    all.push_back(MakeRawSpinning());
    return all;
}

}  // namespace Bench
