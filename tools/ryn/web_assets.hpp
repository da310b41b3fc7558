// The files of the page that `ryn web` serves, built into the executable (cmake/embed.cmake writes
// them out as arrays at build time): the page itself and the plotting library from Debian.
#pragma once

namespace ryn::cli::web {

struct Asset {
    const char *path; // the URL path, "/app.js"
    const char *type; // its content type
    const unsigned char *data;
    unsigned long size;
};

extern const Asset assets[];
extern const unsigned asset_count;

} // namespace ryn::cli::web
