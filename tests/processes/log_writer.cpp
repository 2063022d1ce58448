// Writes to a component log, as its input says:
//   open rte|corvalen NAME   opens the log
//   limit BYTES              no file may grow beyond that (0: no limit any more)
//   put TEXT                 one line
//   many TAG LINES LENGTH    on two threads at once, lines "<TAG>a|b <number> xxx..." of that length
// and answers each with "ok".
#include <signal.h>
#include <sys/resource.h>

#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>

#include "corvalen/diagnostics/ComponentLog.h"
#include "corvalen/diagnostics/Log.h"
#include "corvalen/text/NativeConv.h"
#include "corvalen/text/UcsConv.h"
#include "corvalen/threading/ComThread.h"

namespace {

using namespace System::Diagnostics;

std::unique_ptr<FRteCompLog> s_Rte;
std::unique_ptr<FCorvalenLog> s_Corvalen;

void Put(std::string const& text) {
    FLog::Put(0, 1, "N", "C", text.c_str());
}

void PutMany(std::string const& start, int lines, std::size_t length) {
    for (int line = 0; line < lines; ++line) {
        std::string text = start + " " + std::to_string(line) + " ";
        text.resize(length, 'x');
        Put(text);
    }
}

void Open(std::istringstream& words) {
    std::string kind;
    std::string name;
    std::getline(words >> kind >> std::ws, name);
    auto const length = static_cast<unsigned>(name.size());
    if (kind == "rte") {
        s_Rte = std::make_unique<FRteCompLog>(name.c_str(), length);
    } else {
        s_Corvalen = std::make_unique<FCorvalenLog>(name.c_str(), length);
    }
}

void Limit(std::istringstream& words) {
    rlim_t bytes = 0;
    words >> bytes;
    rlimit limit{};
    ::getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = bytes != 0 ? bytes : limit.rlim_max;
    ::setrlimit(RLIMIT_FSIZE, &limit);
}

void PutOne(std::istringstream& words) {
    std::string text;
    words >> text;
    Put(text);
}

void PutOnTwoThreads(std::istringstream& words) {
    std::string tag;
    int lines = 0;
    std::size_t length = 0;
    words >> tag >> lines >> length;
    std::thread other(PutMany, tag + "a", lines, length);
    PutMany(tag + "b", lines, length);
    other.join();
}

void Do(std::string const& line) {
    std::istringstream words(line);
    std::string command;
    words >> command;
    if (command == "open") {
        Open(words);
    } else if (command == "limit") {
        Limit(words);
    } else if (command == "put") {
        PutOne(words);
    } else {
        PutOnTwoThreads(words);
    }
    std::cout << "ok" << std::endl;
}

}  // namespace

int main() {
    // A write beyond the limit is to fail like one on a full disk, not to end the process.
    ::signal(SIGXFSZ, SIG_IGN);
    System::Threading::CComThread::Init();
    FLog::Init();
    System::Text::UcsConv::Init();
    System::Text::NativeConv::Init();
    for (std::string line; std::getline(std::cin, line);) {
        Do(line);
    }
    s_Rte.reset();
    s_Corvalen.reset();
    System::Text::NativeConv::Terminate();
    System::Text::UcsConv::Terminate();
    FLog::Terminate();
    System::Threading::CComThread::Terminate();
}
