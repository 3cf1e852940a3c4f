#include "tabulo/quickfix/log_factory.h"

#include "adapters/quickfix/engine_log.h"
#include "adapters/quickfix/tables.h"

namespace tabulo {
namespace quickfix {

TabuloLogFactory::TabuloLogFactory(TabuloStoreFactory& store, FIX::LogFactory* others)
    : tables_(store.tables_), others_(others) {
}

FIX::Log* TabuloLogFactory::create() {
    return new EngineLog(nullptr, others_ == nullptr ? nullptr : others_->create());
}

FIX::Log* TabuloLogFactory::create(const FIX::SessionID& session) {
    return new EngineLog(tables_->of(session), others_ == nullptr ? nullptr : others_->create(session));
}

void TabuloLogFactory::destroy(FIX::Log* log) {
    // The engine gives back what create has given it.
    FIX::Log* const others = static_cast<EngineLog*>(log)->others();
    delete log;
    if (others != nullptr) {
        others_->destroy(others);
    }
}

}  // namespace quickfix
}  // namespace tabulo
