// The Ogg Vorbis decoder itself, compiled here where no prebuilt stb library
// is at hand (the Windows build); elsewhere Debian's libstb provides it.
#include <stb_vorbis.h>
