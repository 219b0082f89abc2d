#pragma once
// Which container a normalised file is written in: the family of its source
// where the writer can make it (WAV, BWF, RF64 and BW64 as WAV, RF64 past 4
// GB; FLAC as FLAC; AIFF as AIFF), WAV for everything else. The family is
// read from the file's first bytes, not from its name, and the name of the
// output must fit what is written.
#include <string>

namespace velorum {

enum class Container { Wav, Flac, Aiff, Other };

// The container of a file by its content; Other when it can't be read.
Container SniffContainer(const std::string& path);
// The container a normalised copy of a source in `source` is written in.
Container OutputContainerFor(Container source);
// "WAV", "FLAC", "AIFF" (and "other" for the rest).
const char* ContainerName(Container container);
// The extension given to a new name: ".wav", ".flac", ".aiff".
const char* DefaultExtension(Container container);
// True when the file name's extension fits the container (.wav, .bwf and
// .rf64 for WAV; .flac; .aif and .aiff), in any case.
bool ExtensionFits(Container container, const std::string& path);
// The name of `input`'s normalised copy in `folder`: its file name with the
// extension of the container.
std::string OutputNameIn(const std::string& folder, const std::string& input, Container container);

}  // namespace velorum
