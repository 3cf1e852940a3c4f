#include "tabulo/quickfix/store_factory.h"

#include "adapters/quickfix/engine_store.h"
#include "adapters/quickfix/tables.h"

namespace tabulo {
namespace quickfix {

TabuloStoreFactory::TabuloStoreFactory(const FIX::SessionSettings& settings)
    : tables_(std::make_shared<Tables>(settings)) {
}

TabuloStoreFactory::~TabuloStoreFactory() = default;

FIX::MessageStore* TabuloStoreFactory::create(const FIX::SessionID& session) {
    return new EngineStore(tables_->of(session));
}

void TabuloStoreFactory::destroy(FIX::MessageStore* store) {
    delete store;
}

}  // namespace quickfix
}  // namespace tabulo
