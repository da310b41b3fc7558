// The error table: every code's message, and the codes outside it.
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>

#include "ryn/tra.h"
#include "traerr.hpp"

namespace {

TEST(Errors, EveryCodeOfTheRangeIsInTheTableOrAGap) {
    // The gaps of the range carry no message; everything else has one and a symbolic name.
    const std::set<int> gaps = {-557, -556, -555, -554, -549, -548, -547, -546, -545, -544,
                                -543, -542, -539, -538, -537, -536, -535, -534, -533, -532,
                                -531, -530, -529, -528, -527, -526, -517, -516, -514};
    std::set<std::string> messages;
    for (int code = -572; code <= -502; ++code) {
        std::string message = tra_translate_error(code);
        if (gaps.count(code)) {
            EXPECT_EQ(message, "unknown error") << code;
            EXPECT_EQ(ryn::tra::error_name(code), nullptr) << code;
        } else {
            EXPECT_NE(message, "unknown error") << code;
            EXPECT_TRUE(messages.insert(message).second) << "duplicate message " << message;
            ASSERT_NE(ryn::tra::error_name(code), nullptr) << code;
        }
    }
    EXPECT_EQ(messages.size(), 42u);
}

TEST(Errors, MessagesAreKeptLetterForLetter) {
    const std::map<int, std::string> odd = {
        {TRA_ETOOMANYVALUES, "tool much values specified"},
        {TRA_EGETINFO, "cannot get drive informations"},
        {TRA_ENODOWNLOAD, "No register has been downloaded"},
        {TRA_ESYNTAX, "Version syntax error (Syntax: [n]n.nnc)"},
        {TRA_EBADRESPONSE, "orax bus bad response"},
        {TRA_EGETREC, "orax bus port error (get)"},
    };
    for (const auto &[code, text] : odd)
        EXPECT_EQ(tra_translate_error(code), text);
}

TEST(Errors, OutsideTheTableIsUnknown) {
    for (int code : {0, 1, 502, -1, -414, -501, -514, -573, -1000, INT32_MIN, INT32_MAX})
        EXPECT_STREQ(tra_translate_error(code), "unknown error") << code;
}

TEST(Errors, NamesMatchTheDefines) {
    EXPECT_STREQ(ryn::tra::error_name(TRA_EBADPARAM), "TRA_EBADPARAM");
    EXPECT_STREQ(ryn::tra::error_name(TRA_EINCOMPLETEVECTOR), "TRA_EINCOMPLETEVECTOR");
    EXPECT_STREQ(ryn::tra::error_name(TRA_ENODOWNLOAD), "TRA_ENODOWNLOAD");
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
