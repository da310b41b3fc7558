// The upload stream writer: the comment blocks of a parameter file and the walk over the
// registers of one axis, written line by line through the caller's write callback.
#pragma once

#include <cstdint>
#include <ctime>
#include <vector>

#include "traopn.hpp"

namespace ryn::tra {

// An upload ended by its write callback or by a comment block that could not be written: the
// upload returns 0 and the progress keeps its last value.
inline constexpr int UPLOAD_STOPPED = 1;

// One upload under way: its arguments, the settings it was started with and its progress count.
struct Upload {
    TRA *tra;
    uint32_t flags;
    TRA_WRITE_LINE write_line;
    void *user;
    std::vector<uint8_t> types; // the types asked for, in order
    bool versions;              // register version lines are written (a type list was given)
    int32_t first_index;        // first register index of each type, 0 or more
    int32_t max_index;          // cap of each type's index count, negative: none
    int32_t max_subindex;       // element count of every register, negative: its own
    int axes;                   // A: axes of the upload that are present
    int position;               // a: this axis's place among them, from 1
    int64_t total;              // T: registers of this axis's listed types
    int64_t visited;            // k: registers of this axis visited so far

    // Writes one line; a refusal traces TRA_EWRITE and is UPLOAD_STOPPED.
    int emit(const char *line) const;
};

// Fixes the date of upload headers (null: the local time again). Used by tests only.
void _tra_set_upload_date(const std::tm *fixed);

// The header block: title, writer, date, and under TRA_FVERBOSE the translator's settings.
int _tra_upload_entete_comment(Upload &u);
// The register version lines of every axis of the mask for the families in the type list.
int _tra_upload_register_version(Upload &u, uint64_t axis_mask);
// The axis block: the drive's product category, software version, and its card's.
int _tra_upload_axis_comment(Upload &u, int axis);
// Every listed type of one axis: type headers, grouping passes and value lines.
int _tra_upload_axis_registers(Upload &u, int axis);

} // namespace ryn::tra
