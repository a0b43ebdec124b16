#include "Local/SlotMark.h"

#include "ChunkLayout.h"
#include "Local/File.h"
#include "Local/Report.h"

#include <exception>
#include <utility>

namespace Brantel::Engine {

SlotMark::SlotMark(std::shared_ptr<File> opened, const LocalReport& report, FlushMeter& meter)
    : report(report), gate(ChunkLayout::segmentHeaderSize, meter), file(std::move(opened)) {
    gate.NoteWrite(ChunkLayout::segmentHeaderSize);
}

void SlotMark::FlushNow() noexcept {
    const std::lock_guard lock(mutex);
    if (!file) {
        return;
    }
    try {
        gate.Flush(*file);
    } catch (const std::exception& error) {
        // The next segment in the slot flushes its own header before anything else.
        Tell(report, error.what());
    }
    file.reset();
}

}  // namespace Brantel::Engine
