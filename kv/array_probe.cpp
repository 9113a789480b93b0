#include "kv/array_probe.h"

#include "kv/probe_output.h"

namespace tavo {

template <bool Segbv>
static sb8 read_list8(const ub8 *slot, tavo_aux_info *ai, ub8 *out, ub4 capacity) noexcept {
    if (capacity < smallest_list_output)
        return 0;
    ub4 total = 0;
    const auto copy = [&](const ub8 *rows, ub4 n) {
        std::memcpy(out + total, rows, std::size_t{n} * 8);
        if constexpr (Segbv)
            for (ub4 i = 0; i < n; i++)
                set_bit(ai->segbv, rows[i] - ai->bv_base);
        total += n;
    };
    const list8 list{const_cast<ub8 *>(slot)};
    if (ai->tavo_aux_stream_position == 0) {
        TAVO_ASSERT(ai->tavo_aux_stream2_current_pos == 0);
        if (list.empty())
            return 0;
        if (!list.has_nodes()) {
            list.each_run(copy);
            return total;
        }
        ai->tavo_aux_stream_position = node_of(*slot)->next - 1;
    }
    for (;;) {
        const auto *node = reinterpret_cast<const list8_node *>(ai->tavo_aux_stream_position);
        const auto position = static_cast<ub4>(ai->tavo_aux_stream2_current_pos);
        const ub4 left = node->count - position, room = capacity - total;
        if (left > room) {
            copy(node->values() + position, room);
            ai->tavo_aux_stream2_current_pos = position + room;
            _mm_prefetch(reinterpret_cast<const void *>(node->next & ~ub8{1}), _MM_HINT_T0);
            return -static_cast<sb8>(capacity);
        }
        copy(node->values() + position, left);
        ai->tavo_aux_stream2_current_pos = 0;
        const bool last = node->next & 1;
        ai->tavo_aux_stream_position = last ? 0 : node->next;
        if (last)
            return total;
    }
}

} // namespace tavo

extern "C" {
sb8 tavo_kv_list8_read(const ub8 *slot, tavo_aux_info *ai, ub8 *out, ub4 capacity) noexcept {
    return tavo::read_list8<false>(slot, ai, out, capacity);
}
sb8 tavo_kv_list8_read_segbv(const ub8 *slot, tavo_aux_info *ai, ub8 *out, ub4 capacity) noexcept {
    return tavo::read_list8<true>(slot, ai, out, capacity);
}
sb8 tavo_kv_list8_read_noridout_segbv(const ub8 *slot, tavo_aux_info *ai) noexcept {
    const tavo::list8 list{const_cast<ub8 *>(slot)};
    sb8 total = 0;
    if (!list.empty())
        list.each_run([&](const ub8 *rows, ub4 n) {
            for (ub4 i = 0; i < n; i++)
                tavo::set_bit(ai->segbv, rows[i] - ai->bv_base);
            total += n;
        });
    return total;
}
}
