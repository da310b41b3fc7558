// The one table of error codes, their names and their messages.
#include "traerr.hpp"

#include <array>
#include <cstdio>

#include "sup/error_table.hpp"

namespace ryn::tra {
namespace {

constexpr auto errors = error_table({
    {TRA_ENODOWNLOAD, "TRA_ENODOWNLOAD", "No register has been downloaded"},
    {TRA_ESYNTAX, "TRA_ESYNTAX", "Version syntax error (Syntax: [n]n.nnc)"},
    {TRA_EINTVALUE, "TRA_EINTVALUE", "int value not allowed"},
    {TRA_EFLOATVALUE, "TRA_EFLOATVALUE", "float value not allowed"},
    {TRA_ENODRIVE, "TRA_ENODRIVE", "drive not present"},
    {TRA_EREADONLY, "TRA_EREADONLY", "read-only register"},
    {TRA_ETOOMANYPARAMS, "TRA_ETOOMANYPARAMS", "too many parameters"},
    {TRA_EISOVALUE, "TRA_EISOVALUE", "iso value not allowed"},
    {TRA_EISOCONV, "TRA_EISOCONV", "iso conversion failed"},
    {TRA_EBADENUM, "TRA_EBADENUM", "invalid enumeration"},
    {TRA_ERANGE, "TRA_ERANGE", "parameter range error"},
    {TRA_ECMDSYNTAX, "TRA_ECMDSYNTAX", "command syntax error"},
    {TRA_EEMPTYCMD, "TRA_EEMPTYCMD", "empty command"},
    {TRA_EWRITE, "TRA_EWRITE", "write error"},
    {TRA_EDEPRECATED, "TRA_EDEPRECATED", "deprecated command or register"},
    {TRA_ESTREAMFORMAT, "TRA_ESTREAMFORMAT", "bad stream format"},
    {TRA_EBADRESPONSE, "TRA_EBADRESPONSE", "orax bus bad response"},
    {TRA_EGETREC, "TRA_EGETREC", "orax bus port error (get)"},
    {TRA_EPUTREC, "TRA_EPUTREC", "orax bus port error (put)"},
    {TRA_EMULTIREC, "TRA_EMULTIREC", "bad multiple record command"},
    {TRA_EUNKNOWN, "TRA_EUNKNOWN", "command or register unknown"},
    {TRA_ENOCOMMAND, "TRA_ENOCOMMAND", "no command available"},
    {TRA_EBUFSIZE, "TRA_EBUFSIZE", "buffer too small"},
    {TRA_EGETINFO, "TRA_EGETINFO", "cannot get drive informations"},
    {TRA_ENOTALLOWED, "TRA_ENOTALLOWED", "operation not allowed"},
    {TRA_EBADEXTPROD, "TRA_EBADEXTPROD", "unknown extension card product"},
    {TRA_EBADDRVPROD, "TRA_EBADDRVPROD", "unknown drive product"},
    {TRA_EBADEXTVER, "TRA_EBADEXTVER", "incompatible extension card version"},
    {TRA_EBADDRVVER, "TRA_EBADDRVVER", "incompatible drive version"},
    {TRA_EBADPARAM, "TRA_EBADPARAM", "invalid parameter"},
    {TRA_EDRIVEERROR, "TRA_EDRIVEERROR", "drive in error"},
    {TRA_ENOACK, "TRA_ENOACK", "no drive acknowledge"},
    {TRA_ESYSTEM, "TRA_ESYSTEM", "system error"},
    {TRA_EINTERNAL, "TRA_EINTERNAL", "internal error"},
    {TRA_ETYPECONV, "TRA_ETYPECONV", "type conversion not allowed"},
    {TRA_EBADINDEX, "TRA_EBADINDEX", "bad vector index"},
    {TRA_EREGADDR, "TRA_EREGADDR", "register address not allowed"},
    {TRA_ENOVECTOR, "TRA_ENOVECTOR", "vector not allowed"},
    {TRA_EBADTYPE, "TRA_EBADTYPE", "bad register type"},
    {TRA_ETOOMANYVALUES, "TRA_ETOOMANYVALUES", "tool much values specified"},
    {TRA_EBADSUBSCRIPT, "TRA_EBADSUBSCRIPT", "bad subscript specified"},
    {TRA_EINCOMPLETEVECTOR, "TRA_EINCOMPLETEVECTOR", "incomplete vector specified"},
});

// "Convert error in TRA_..." for every code a conversion may produce, built once.
struct Notes {
    std::array<std::array<char, 48>, errors.size()> text{};
    Notes() {
        for (std::size_t i = 0; i < errors.size(); ++i)
            std::snprintf(text[i].data(), text[i].size(), "Convert error in %s",
                          errors.rows[i].name);
    }
};

const char *convert_note(int code) {
    static const Notes notes;
    const std::ptrdiff_t at = errors.position(code);
    return at >= 0 ? notes.text[static_cast<std::size_t>(at)].data() : nullptr;
}

} // namespace

const char *error_name(int code) {
    return errors.name(code);
}

int Tracer::convert(int line, int code) const {
    sup_trace_pass(module, line, function, convert_note(code));
    return code;
}

int from_vok(int vok_code) {
    switch (vok_code) {
    case -419:
        return TRA_EBADEXTVER;
    case -418:
        return TRA_EBADDRVVER;
    case -417:
        return TRA_EBADEXTPROD;
    case -416:
        return TRA_EBADDRVPROD;
    case -415:
        return TRA_EBADPARAM;
    case -414:
        return TRA_ESYSTEM;
    default:
        return TRA_EINTERNAL;
    }
}

int convert_vok(const Tracer &t, const VokLines &lines, int vok_code) {
    int code = from_vok(vok_code);
    int line = lines.other;
    switch (code) {
    case TRA_EBADEXTVER:
        line = lines.ext_version;
        break;
    case TRA_EBADDRVVER:
        line = lines.drv_version;
        break;
    case TRA_EBADEXTPROD:
        line = lines.ext_product;
        break;
    case TRA_EBADDRVPROD:
        line = lines.drv_product;
        break;
    case TRA_EBADPARAM:
        line = lines.bad_param;
        break;
    case TRA_ESYSTEM:
        line = lines.system;
        break;
    default:
        break;
    }
    return t.convert(line, code);
}

} // namespace ryn::tra

extern "C" const char *tra_translate_error(int code) {
    return ryn::tra::errors.message(code);
}
