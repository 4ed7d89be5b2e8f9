// The flashing tool's image loader, given the input as an Intel HEX file, as a
// raw binary file and as a file whose format it must guess.
#include "FuzzSupport.h"

#include "FirmwareImage.h"

#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzz::silenceOutput();
    static const juce::TemporaryFile hex(".hex"), bin(".bin"), unnamed;
    for (const auto& file : { hex.getFile(), bin.getFile(), unnamed.getFile() })
        fuzz::check(file.replaceWithData(data, size), "the image file is written");

    FirmwareImage image;
    juce::String error;
    image.load(hex.getFile(), FirmwareImage::Format::intelHex, error);
    image.load(unnamed.getFile(), FirmwareImage::Format::guess, error);

    // A binary file is its own image, byte for byte.
    const bool loaded = image.load(bin.getFile(), FirmwareImage::Format::binary, error);
    fuzz::check(loaded == (size > 0), "a binary file loads unless empty");
    if (loaded)
        fuzz::check(image.size() == size && std::memcmp(image.bytes().getData(), data, size) == 0,
                    "a binary image is the file's bytes");
    return 0;
}
