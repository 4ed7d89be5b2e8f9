// The dock emulator's reading of the product's request lines, and its answers. Input: request lines,
// answered in turn by one emulator, so that a request can use the connection an earlier one opened.
#include "docksim/emulator.h"
#include "docksim/json.h"

#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>

using docksim::Json;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    docksim::Options options;
    for (const char kind : { 's', 'm', 'n' })
    {
        docksim::DockConfig dock;
        dock.kind = kind;
        dock.id = (int) options.docks.size();
        options.docks.push_back(dock);
    }
    docksim::Emulator emulator(options, nullptr);

    std::istringstream lines(std::string((const char*) data, size));
    for (std::string line; std::getline(lines, line);)
    {
        Json request, again;
        std::string error;
        if (!Json::parse(line, request, error))
            continue;
        // What the emulator writes, it must read back as the same value.
        if (!Json::parse(request.dump(), again, error) || again != request)
        {
            std::fprintf(stderr, "fuzz check failed: a dumped value reads back unchanged (%s)\n", error.c_str());
            std::abort();
        }
        if (request.isObject())
            emulator.request(1, request).dump();
    }
    for (const auto& due : emulator.takeDue(docksim::Emulator::Clock::now() + std::chrono::hours(1)))
        (void) due.line.size();
    return 0;
}
