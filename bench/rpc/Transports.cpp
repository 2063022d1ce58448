#include "bench/rpc/Transport.h"

namespace Bench {

std::vector<std::unique_ptr<Transport>> AllTransports() {
    std::vector<std::unique_ptr<Transport>> all;
    all.push_back(MakeOwn());
#ifdef CORVALEN_BENCH_LIBZMQ_FOUND
    all.push_back(MakeZeroMq());
#endif
#ifdef CORVALEN_BENCH_NNG_FOUND
    all.push_back(MakeNng());
#endif
#ifdef CORVALEN_BENCH_BOOST_MESSAGE_QUEUE
    all.push_back(MakeBoostQueue());
#endif
#ifdef CORVALEN_BENCH_ICEORYX_POSH_FOUND
    all.push_back(MakeIceoryx());
#endif
#ifdef CORVALEN_BENCH_LIBSYSTEMD_FOUND
    all.push_back(MakePrivateSdBus());
    all.push_back(MakeDaemonSdBus());
#endif
    all.push_back(MakePipe());
    all.push_back(MakeSeqPacket());
    all.push_back(MakeRawFutex());
    all.push_back(MakeRawSpinning());
    return all;
}

}  // namespace Bench
