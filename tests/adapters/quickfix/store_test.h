// What the tests of QuickFIX's stores share. C++14, as the engine's headers.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <quickfix/FileStore.h>
#include <quickfix/MessageStore.h>
#include <quickfix/SessionSettings.h>

#include "tabulo/quickfix/log_factory.h"
#include "tabulo/quickfix/store_factory.h"

namespace tabulo {
namespace quickfix {
namespace test {

using Texts = std::vector<std::string>;

// A folder of its own, which goes with the object.
class Folder {
  public:
    Folder();
    ~Folder();
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }

  private:
    std::string path_;
};

// A session's settings, as lines "Name=value" with a line end each beside those that every session has.
FIX::SessionSettings settingsWith(const std::string& folder, const std::string& lines = "");
// The session of those settings.
FIX::SessionID session();

// "8=FIX.4.4|9=..|35=D|...|10=000|": an order with a number and an id.
std::string order(int number, const std::string& id = "");
// A message of a type, with fields "55=MSFT|" behind its header.
std::string wireOf(const std::string& type, int number, const std::string& fields = "");

// A store with its factory, which gives it back.
class OpenStore {
  public:
    explicit OpenStore(std::unique_ptr<FIX::MessageStoreFactory> factory)
        : factory_(std::move(factory)), store_(factory_->create(session())) {}
    ~OpenStore() { factory_->destroy(store_); }
    OpenStore(const OpenStore&) = delete;
    OpenStore& operator=(const OpenStore&) = delete;

    FIX::MessageStore* operator->() const { return store_; }
    Texts get(int first, int last) const {
        Texts found;
        store_->get(first, last, found);
        return found;
    }

  private:
    std::unique_ptr<FIX::MessageStoreFactory> factory_;
    FIX::MessageStore* store_;
};

// What stands in a session's message table, a line for each message: "APP_TO D 7 ORDER-7", with " dup" and " out" for
// the two flags.
Texts storedIn(const std::string& path);
// The uniform ids in it.
std::vector<int> uniformIdsIn(const std::string& path);

}  // namespace test
}  // namespace quickfix
}  // namespace tabulo
