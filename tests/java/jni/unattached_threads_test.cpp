// Threads of the process that the virtual machine does not know, with a host's log facility installed: their lines are
// dropped, they are never attached, and what they do is done all the same.
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "core/log.h"
#include "jni/log_bridge.h"
#include "messagetable/message_lookup.h"
#include "messagetable/message_table.h"
#include "tests/java/jni/embedded_jvm.h"
#include "tests/support/captured_output.h"
#include "tests/support/temporary_directory.h"

namespace tabulo::internal::test {
namespace {

class UnattachedThreads : public WithJvm {
  protected:
    void SetUp() override {
        WithJvm::SetUp();
        if (env == nullptr) {
            return;
        }
        recorder = make("Recorder");
        install(recorder);
    }

    void TearDown() override {
        log_setFacility(nullptr);
        WithJvm::TearDown();
    }

    void install(jobject facilityObject) {
        LogFacility* facility = nullptr;
        ASSERT_EQ(NO_ERROR, logBridge_create(env, facilityObject, &facility));
        log_setFacility(facility);
    }

    // Runs on a thread of its own, which must be as unknown to the virtual machine afterwards as before; gives what was
    // printed on standard error meanwhile.
    std::string onUnattachedThread(const std::function<void()>& body) {
        const CapturedOutput errors(stderr);
        std::thread thread([&] {
            body();
            void* attached = nullptr;
            EXPECT_EQ(JNI_EDETACHED, vm->GetEnv(&attached, JNI_VERSION_1_4)) << "the library attaches no thread";
        });
        thread.join();
        return errors.text();
    }

    KSVTboTableConfig* configuration() const {
        KSVTboTableConfig* config = tableConfig_create("orders", 1);
        EXPECT_EQ(tableConfig_setPath(config, 0, directory.root().c_str()), NO_ERROR);
        return config;
    }

    // Writes three messages, cuts the last one, and opens the table again, which recovers it with a warning.
    void useTable(bool cut, std::int32_t* lastId) {
        MessageTable* table = mt_create(configuration());
        ASSERT_EQ(NO_ERROR, mt_open(table, OpenMode::write));
        std::vector<StringField> strings(4);
        strings[2] = {"wire", 5};
        for (std::int32_t id = 1; cut && id <= 3; ++id) {
            MessageMetadata metadata;
            metadata.uniformId = id;
            EXPECT_EQ(NO_ERROR, mt_writeMessage(table, {metadata, strings, {}}));
        }
        EXPECT_EQ(NO_ERROR, mt_getLastUniformMessageId(table, lastId));
        std::int32_t none = 0;
        EXPECT_EQ(INDEX_OUT_OF_BOUNDS_ERROR, mt_getLastMessageId(table, -1, &none)) << "with a warning";
        mt_destroy(table);
        if (cut) {
            const std::string file = directory.file("orders");
            std::filesystem::resize_file(file, std::filesystem::file_size(file) - 1);
        }
    }

    TemporaryDirectory directory;
    jobject recorder = nullptr;
};

TEST_F(UnattachedThreads, ATableIsWrittenRecoveredAndAskedWhileItsNotesAndWarningsAreDropped) {
    std::int32_t written = 0;
    std::int32_t recovered = 0;
    const std::string printed = onUnattachedThread([&] {
        useTable(true, &written);
        useTable(false, &recovered);
    });
    EXPECT_EQ(3, written);
    EXPECT_EQ(2, recovered) << "the cut message is gone, the others are there";
    EXPECT_EQ(std::string::npos, printed.find("WARNING")) << "a dropped line is not printed either: " << printed;
    EXPECT_EQ("", take(recorder)) << "the logger was called from a thread that Java does not know";
}

TEST_F(UnattachedThreads, TheSameOnAnAttachedThreadIsLogged) {
    std::int32_t written = 0;
    useTable(true, &written);
    useTable(false, &written);
    const std::string taken = take(recorder);
    EXPECT_NE(std::string::npos, taken.find("was recovered")) << taken;
    EXPECT_NE(std::string::npos, taken.find("out of bounds")) << taken;
}

TEST_F(UnattachedThreads, AFacilityIsRemovedByAThreadThatCannotTellJava) {
    onUnattachedThread([] {
        log_setFacility(nullptr);
        log_warning("f", "nobody takes this\n");
    });
    log_warning("f", "nor this\n");
    EXPECT_EQ("", take(recorder));
    install(make("Recorder"));
    log_warning("f", "taken by another one");
    EXPECT_EQ("", take(recorder));
}

TEST_F(UnattachedThreads, ManyThreadsAtOnceDropTheirLinesAndTheNextAttachedOneIsHeard) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([] {
            for (int line = 0; line < 1000; ++line) {
                log_warning("f", "dropped %d\n", line);
                log_note("f", "dropped %d\n", line);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ("", take(recorder));
    log_note("f", "heard");
    EXPECT_EQ("info2[Tabulo/C NOTE: f(): ]info2[heard]", take(recorder));
}

TEST_F(UnattachedThreads, AThreadThatWasAttachedAndDetachedIsUnknownAgain) {
    onUnattachedThread([&] {
        void* attached = nullptr;
        ASSERT_EQ(JNI_OK, vm->AttachCurrentThread(&attached, nullptr));
        log_warning("f", "heard");
        ASSERT_EQ(JNI_OK, vm->DetachCurrentThread());
        log_warning("f", "dropped");
    });
    EXPECT_EQ("warning2[Tabulo/C WARNING: f(): ]warning2[heard]", take(recorder));
}

}  // namespace
}  // namespace tabulo::internal::test
