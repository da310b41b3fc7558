// The error table: symbolic names, conversion notes of dictionary codes, codes outside it.
#include <gtest/gtest.h>

#include "ryn/tra.h"
#include "traerr.hpp"

namespace {

TEST(Errors, SymbolicNamesAndKeptMessages) {
    EXPECT_STREQ(ryn::tra::error_name(TRA_EINCOMPLETEVECTOR), "TRA_EINCOMPLETEVECTOR");
    EXPECT_EQ(ryn::tra::error_name(-514), nullptr) << "a gap of the range";
    EXPECT_STREQ(tra_translate_error(TRA_ETOOMANYVALUES), "tool much values specified");
}

TEST(Errors, OutsideTheTableIsUnknown) {
    for (int code : {0, 1, 502, -1, -414, -501, -514, -573, -1000, INT32_MIN, INT32_MAX})
        EXPECT_STREQ(tra_translate_error(code), "unknown error") << code;
}

TEST(Errors, DictionaryCodesConvertWithTheirNotes) {
    struct Row {
        int vok;
        int tra;
        int line;
        const char *note;
    } rows[] = {
        {-419, TRA_EBADEXTVER, 1, "Convert error in TRA_EBADEXTVER"},
        {-418, TRA_EBADDRVVER, 2, "Convert error in TRA_EBADDRVVER"},
        {-417, TRA_EBADEXTPROD, 3, "Convert error in TRA_EBADEXTPROD"},
        {-416, TRA_EBADDRVPROD, 4, "Convert error in TRA_EBADDRVPROD"},
        {-415, TRA_EBADPARAM, 5, "Convert error in TRA_EBADPARAM"},
        {-414, TRA_ESYSTEM, 6, "Convert error in TRA_ESYSTEM"},
        {-420, TRA_EINTERNAL, 7, "Convert error in TRA_EINTERNAL"},
        {-1, TRA_EINTERNAL, 7, "Convert error in TRA_EINTERNAL"},
    };
    static constexpr ryn::tra::Tracer t{"tralkt", "site"};
    for (const Row &r : rows) {
        sup_trace_error("vok", 1, "vok_open", r.vok, "dictionary", nullptr, nullptr, nullptr,
                        nullptr, nullptr);
        EXPECT_EQ(ryn::tra::convert_vok(t, {1, 2, 3, 4, 5, 6, 7}, r.vok), r.tra);
        ASSERT_EQ(sup_trace_count(), 2);
        SUP_FRAME f{};
        sup_trace_get(1, &f);
        EXPECT_EQ(f.line, r.line) << r.vok;
        EXPECT_STREQ(f.note, r.note);
        EXPECT_STREQ(f.function, "site");
    }
}

} // namespace
