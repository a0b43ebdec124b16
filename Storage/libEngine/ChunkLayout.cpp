#include "ChunkLayout.h"

static_assert(Brantel::Engine::ChunkLayout::Length(1, 1) % 8 == 0);
static_assert(Brantel::Engine::ChunkLayout::Usable(1U << 20U) == 1040384);
