// Execution of records on the simulated drives of a sim: bus: fan-out to the present axes, one
// merged answer, the bus's own answer for absent drives and lost answers, and the faults.
#include "sim_transport.hpp"

#include <bit>
#include <cstring>

#include "bus.hpp"
#include "ryn/vok.h"

namespace ryn::oxb {

namespace {

std::string version_text(uint32_t version) {
    char buf[32];
    vok_version_to_string(buf, sizeof buf, version, "");
    return buf;
}

std::string product_text(uint32_t product) {
    const char *name = vok_get_product_name(product);
    return name != nullptr ? name : "product " + std::to_string(product);
}

bool card_knows_version(uint32_t card, uint32_t version) {
    const int n = vok_get_ext_product_version_count(card);
    for (int i = 0; i < n; ++i)
        if (vok_get_ext_product_version(card, i) == version) return true;
    return false;
}

} // namespace

OXBSIM_FAULTS default_faults() {
    OXBSIM_FAULTS f{};
    f.answer_ms = 500;
    f.seed = 1;
    return f;
}

int make_drive(sim::Identity id, int axis, std::unique_ptr<sim::Drive> *out, std::string *why) {
    if (vok_get_product_name(id.product) == nullptr) {
        *why = "unknown drive product " + std::to_string(id.product);
        return OXB_EDRIVE;
    }
    if (id.version == 0) id.version = vok_get_default_version(id.product);
    if (id.version == 0 || !vok_is_known_version(id.product, id.version)) {
        *why = product_text(id.product) + " has no version " +
               (id.version == 0 ? std::string("at all") : version_text(id.version));
        return OXB_EDRIVE;
    }
    if (id.ext_product != 0) {
        const char *card = vok_get_ext_product_name(id.ext_product);
        if (card == nullptr) {
            *why = "unknown extension card " + std::to_string(id.ext_product);
            return OXB_EDRIVE;
        }
        if (id.ext_version == 0)
            id.ext_version = vok_get_ext_product_default_version(id.ext_product);
        if (!card_knows_version(id.ext_product, id.ext_version)) {
            *why = std::string(card) + " has no version " + version_text(id.ext_version);
            return OXB_EDRIVE;
        }
        if (!vok_ext_fits_product(id.ext_product, id.product)) {
            *why = std::string(card) + " does not fit " + product_text(id.product);
            return OXB_EDRIVE;
        }
    } else {
        id.ext_version = 0;
    }
    const int rc = sim::Drive::create(id, axis, out);
    if (rc != 0) {
        *why = product_text(id.product) + " " + version_text(id.version) + ": " +
               vok_translate_error(rc);
        return OXB_EDRIVE;
    }
    return 0;
}

SimTransport::SimTransport(const OXBSIM_FAULTS &faults) : faults_(faults), rng_(faults.seed) {}

void SimTransport::set_faults(const OXBSIM_FAULTS &faults) {
    faults_ = faults;
    rng_.seed(faults.seed);
}

bool SimTransport::draw(double p) {
    // 53 random bits as a double in [0, 1): the same sequence for a seed on every platform.
    const double u = static_cast<double>(rng_() >> 11) * 0x1p-53;
    return u < p;
}

int SimTransport::submit(const Outbound &out) {
    const wire::ConstRecordView request = out.record;
    alignas(8) uint8_t merged_bytes[wire::RECORD_MAX_SIZE];
    alignas(8) uint8_t scratch_bytes[wire::RECORD_MAX_SIZE];
    const wire::RecordView merged{merged_bytes};

    uint64_t axes = out.axes & present_;
    if (axes == 0) {
        write_bus_answer(request, merged);
        out.port->post(out.ticket, wire::ConstRecordView{merged_bytes}, out.sent, out.sent);
        return 0;
    }
    // A register read is answered by one drive: the lowest addressed one.
    if (wire::is_request_kind(request.kind())) axes &= ~axes + 1;

    const uint64_t now = out.sent_us;
    bool ack = true;
    bool status = false;
    bool lost = false;
    bool first = true;
    uint64_t leaving = 0;
    for (uint64_t rest = axes; rest != 0; rest &= rest - 1) {
        const int axis = std::countr_zero(rest);
        const wire::RecordView answer{first ? merged_bytes : scratch_bytes};
        if (faults_.nack > 0 && draw(faults_.nack)) {
            std::memcpy(answer.bytes, request.bytes, static_cast<std::size_t>(request.size()));
            answer.set_word((request.word() & ~wire::HEADER_ACK) | wire::HEADER_STATUS);
        } else {
            drives_[axis]->execute(request, answer, now);
            if (answer.count() > wire::RECORD_MAX_SLOTS) write_bus_answer(request, answer);
        }
        if (faults_.drop > 0 && draw(faults_.drop)) lost = true;
        ack = ack && (answer.word() & wire::HEADER_ACK) != 0;
        status = status || (answer.word() & wire::HEADER_STATUS) != 0;
        if (faults_.detach_after != 0 && ++records_[axis] >= faults_.detach_after)
            leaving |= uint64_t{1} << axis;
        first = false;
    }

    if (lost) {
        write_bus_answer(request, merged);
        out.port->post(out.ticket, wire::ConstRecordView{merged_bytes},
                       out.sent + std::chrono::milliseconds(faults_.answer_ms), out.sent);
    } else {
        const uint32_t bits = (ack ? wire::HEADER_ACK : 0) | (status ? wire::HEADER_STATUS : 0);
        merged.set_word((merged.word() & ~(wire::HEADER_ACK | wire::HEADER_STATUS)) | bits);
        out.port->post(out.ticket, wire::ConstRecordView{merged_bytes},
                       out.sent + std::chrono::microseconds(faults_.latency_us), out.sent);
    }
    for (; leaving != 0; leaving &= leaving - 1)
        detach(std::countr_zero(leaving));
    return 0;
}

int SimTransport::drive_info(int axis, wire::DriveInfo *info) {
    const sim::Drive *d = drive(axis);
    if (d == nullptr) return OXB_ENODRIVE;
    const sim::Identity &id = d->identity();
    *info = {};
    info->size = sizeof(wire::DriveInfo);
    info->product = id.product;
    info->boot_revision = id.boot_revision;
    info->serial = id.serial;
    info->version = id.version;
    return 0;
}

int SimTransport::ext_info(int axis, wire::ExtInfo *info) {
    const sim::Drive *d = drive(axis);
    if (d == nullptr) return OXB_ENODRIVE;
    const sim::Identity &id = d->identity();
    *info = {};
    info->size = sizeof(wire::ExtInfo);
    info->product = id.ext_product;
    info->version = id.ext_product != 0 ? id.ext_version : 0;
    return 0;
}

sim::Drive *SimTransport::drive(int axis) const {
    return axis >= 0 && axis < 64 ? drives_[static_cast<std::size_t>(axis)].get() : nullptr;
}

int SimTransport::attach(int axis, std::unique_ptr<sim::Drive> d) {
    auto &slot = drives_[static_cast<std::size_t>(axis)];
    if (slot) return OXB_EPRESENT;
    slot = std::move(d);
    records_[static_cast<std::size_t>(axis)] = 0;
    present_ |= uint64_t{1} << axis;
    if (host_ != nullptr) host_->raise_event(axis, OXB_EVENT_DRIVE_PRESENT);
    return 0;
}

int SimTransport::detach(int axis) {
    auto &slot = drives_[static_cast<std::size_t>(axis)];
    if (!slot) return OXB_ENODRIVE;
    slot.reset();
    records_[static_cast<std::size_t>(axis)] = 0;
    present_ &= ~(uint64_t{1} << axis);
    if (host_ != nullptr) host_->raise_event(axis, OXB_EVENT_DRIVE_GONE);
    return 0;
}

} // namespace ryn::oxb
