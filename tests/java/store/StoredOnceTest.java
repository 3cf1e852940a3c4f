package com.corvane.kestrova.engine.tabulo.jni;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;
import static org.junit.jupiter.api.Assumptions.assumeTrue;

import com.corvane.kestrova.engine.tabulo.store.MessageStore;
import com.corvane.kestrova.engine.tabulo.store.StoredMessage;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.Random;
import java.util.stream.IntStream;
import org.junit.jupiter.api.Test;

/**
 * The system refuses writes around the end of a block, where a message can be stored although its write has failed:
 * strace puts errors in the place of the calls. However many are refused, each message is stored once.
 */
class StoredOnceTest extends OnStores {
    /** The header and 999 messages are one call each; then come the last of the block, its length, and the tail. */
    private static final int LAST_OF_THE_BLOCK = 1001;
    private static final int TAIL = LAST_OF_THE_BLOCK + 2;
    private static final int RANDOM_RUNS = 8;
    private static final String[] ERRORS = {"ENOSPC", "EIO", "EFBIG", "EDQUOT"};

    private int tables;

    private void lookForStrace() throws IOException, InterruptedException {
        String probe = directory.resolve("probe").toString();
        Process strace = new ProcessBuilder("strace", "-o", probe, "true").inheritIO().start();
        assumeTrue(strace.waitFor() == 0, "no process may be traced here");
    }

    /** Stores the messages behind a shell command; gives how often a call has thrown. */
    private int store(Path table, String before) throws Exception {
        try (ChildJvm child = ChildJvm.start(directory, before, List.of(), RefusedWritesProgram.class,
                table.toString())) {
            List<String> said = child.finish();
            return Integer.parseInt(said.get(said.size() - 1));
        }
    }

    private static void assertEachIsThereOnce(Path table, String what) {
        try (MessageStore store = MessageStore.openReader(table)) {
            List<StoredMessage> all = all(store);
            assertEquals(IntStream.rangeClosed(1, RefusedWritesProgram.MESSAGES).boxed().toList(),
                    all.stream().map(StoredMessage::seqNum).toList(), what);
            for (int i = 1; i < all.size(); ++i) {
                assertTrue(all.get(i).uniformId() > all.get(i - 1).uniformId(), "the uniform ids rise");
                assertEquals(all.get(i - 1).id() + 1, all.get(i).id(), "the connection message ids have no gap");
            }
        }
    }

    /** Stores with some calls refused, counted from 1, and looks what is there; gives how often a call has thrown. */
    private int storeWithout(int first, int last, String error) throws Exception {
        lookForStrace();
        tables += 1;  // the same calls may be refused twice
        Path table = directory.resolve("t" + tables);
        Path calls = directory.resolve("calls");
        String trace = "exec strace -f -qq -o " + calls + " -P " + table + " -e trace=pwrite64 -e inject=pwrite64"
                + ":error=" + error + ":when=" + first + ".." + last + " \"$@\";";
        int failures = store(table, trace);
        try (var lines = Files.lines(calls)) {
            assertEquals(last - first + 1, lines.filter(line -> line.contains("INJECTED")).count(), "refused calls");
        }
        assertEachIsThereOnce(table, "calls " + first + " to " + last + ": " + error);
        return failures;
    }

    @Test
    void whereNothingIsRefusedEachMessageIsStoredOnce() throws Exception {
        assertEquals(0, store(file(), ""));
        assertEachIsThereOnce(file(), "nothing is refused");
    }

    @Test
    void aMessageThatIsNotThereAfterAFailureIsStoredAgainByTheSameCall() throws Exception {
        assertEquals(0, storeWithout(500, 500, "ENOSPC"));
        assertEquals(0, storeWithout(LAST_OF_THE_BLOCK, LAST_OF_THE_BLOCK, "EIO"));
    }

    @Test
    void aMessageThatIsThereAfterAFailureIsNotStoredAgain() throws Exception {
        assertEquals(0, storeWithout(TAIL, TAIL, "ENOSPC"));
    }

    @Test
    void aMessageThatWasThereWhenTheTableCouldNotBeOpenedIsNotStoredAgainLater() throws Exception {
        assertTrue(storeWithout(TAIL, TAIL + 2, "ENOSPC") > 0, "the table can be opened again all the same");
    }

    @Test
    void howeverManyCallsAreRefusedEachMessageIsStoredOnce() throws Exception {
        Random random = new Random(TestRun.seed());
        for (int run = 0; run < RANDOM_RUNS * TestRun.effort(); ++run) {
            int first = LAST_OF_THE_BLOCK - 3 + random.nextInt(9);
            storeWithout(first, first + random.nextInt(8), ERRORS[random.nextInt(ERRORS.length)]);
        }
    }
}
