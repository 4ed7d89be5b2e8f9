// The flashing tool's image loader, given the input as an Intel HEX file, as a
// raw binary file and as a file whose format it must guess.
#include "FuzzSupport.h"

#include "FirmwareImage.h"

#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzz::silenceOutput();
    static const juce::TemporaryFile dir;
    static const bool made = dir.getFile().createDirectory().wasOk();
    fuzz::check(made, "a directory for the image files");

    const auto hex = dir.getFile().getChildFile("image.hex");
    const auto bin = dir.getFile().getChildFile("image.bin");
    const auto unnamed = dir.getFile().getChildFile("image");
    for (const auto& file : { hex, bin, unnamed })
        fuzz::check(file.replaceWithData(data, size), "the image file is written");

    FirmwareImage image;
    juce::String error;
    image.load(hex, FirmwareImage::Format::intelHex, error);
    image.load(unnamed, FirmwareImage::Format::guess, error);

    // A binary file is its own image, byte for byte.
    const bool loaded = image.load(bin, FirmwareImage::Format::binary, error);
    fuzz::check(loaded == (size > 0), "a binary file loads unless empty");
    if (loaded)
        fuzz::check(image.size() == size && std::memcmp(image.bytes().getData(), data, size) == 0,
                    "a binary image is the file's bytes");
    return 0;
}
