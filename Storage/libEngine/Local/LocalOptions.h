#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace Brantel::Engine {

// Told what nobody waits for an answer about: a flush that failed later, damage found at the start.
using LocalReport = std::function<void(const std::string&)>;

struct LocalOptions {
    // How space is taken from the medium when it is reserved.
    enum class Preparation {
        Write,     // zeros are written: each append finds blocks that are there, the fastest later
        Allocate,  // the file system is asked for it: done at once, the first lap is slower
    };

    std::string directory;
    // Nothing in the folder is changed: what is written to the catalogue lands in a copy of it and
    // is forgotten at the end, and whatever would change a segment fails.
    bool readOnly = false;
    std::uint64_t limit = 0;  // bytes that can be reserved; 0: what the medium has
    // Bytes of the medium that no reservation takes.
    std::uint64_t keepFree = std::uint64_t{256} << 20U;
    Preparation preparation = Preparation::Write;
    std::size_t openFiles = 512;   // segment files kept open, besides those being written
    std::size_t flushThreads = 4;  // for durability Interval, and that free what was removed
    std::size_t sealThreads = 2;   // that flush and index what is sealed
    std::size_t startThreads = 8;  // that read the tracks at the start
    // Bytes set aside for the catalogue, so that it can be written when the medium is full.
    std::uint64_t catalogueReserve = std::uint64_t{4} << 20U;
    std::string catalogueVfs;  // the SQLite VFS to use; empty: the system's
    LocalReport report;        // thread-safe; empty: the standard error
    // Told what is no fault: what a crash left unfinished, and nothing was promised of.
    // Thread-safe; empty: nobody.
    LocalReport note;
};

}  // namespace Brantel::Engine
