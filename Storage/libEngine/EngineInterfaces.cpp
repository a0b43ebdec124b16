// Compiles the interface on its own: a header that needs another one first fails here.
#include <libEngine/ChunkLayout.h>
#include <libEngine/EngineError.h>
#include <libEngine/EngineTypes.h>
#include <libEngine/IEngine.h>

static_assert(Brantel::Engine::ChunkLayout::Length(1, 1) % 8 == 0);
static_assert(Brantel::Engine::ChunkLayout::Usable(1U << 20U) == 1040384);
