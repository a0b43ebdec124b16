// Compiles the interfaces on their own: a header that needs another one first fails here.
#include <libProtocolX/rpc/ITrackReader.h>
#include <libProtocolX/rpc/ITrackReaderFactory.h>
#include <libProtocolX/rpc/ITrackStorage.h>
#include <libProtocolX/rpc/ITrackWriter.h>
#include <libProtocolX/rpc/ITrackWriterFactory.h>
