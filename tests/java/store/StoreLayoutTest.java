package com.corvane.kestrova.engine.tabulo.jni;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;
import static org.junit.jupiter.api.Assumptions.assumeTrue;

import com.corvane.kestrova.engine.tabulo.store.Layout;
import com.corvane.kestrova.engine.tabulo.store.MessageStore;
import com.corvane.kestrova.engine.tabulo.store.SessionNumbers;
import com.corvane.kestrova.engine.tabulo.store.TabuloDamagedException;
import com.corvane.kestrova.engine.tabulo.store.TabuloException;
import java.io.ByteArrayOutputStream;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.time.Instant;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Random;
import java.util.concurrent.TimeUnit;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import org.junit.jupiter.api.Test;

/** The layout that is read from a table's file. */
class StoreLayoutTest extends OnStores {
    private static final int DAMAGED_FILES = 1500;
    private static final Pattern DUMP = Pattern.compile("    [0-9a-f]{8}:((?: [0-9a-f]{2})+).*");

    private void assertRead(Layout expected, Path table) {
        assertEquals(expected, Layout.read(table));
        try (MessageStore reader = MessageStore.openReader(table)) {
            assertEquals(expected, reader.layout());
        }
    }

    @Test
    void theLayoutIsReadAsItWasGiven() {
        Random random = new Random(TestRun.seed());
        for (int i = 0; i < 50; ++i) {
            Layout.Builder builder = Layout.builder();
            for (int texts = random.nextInt(13); texts > 0; --texts) {
                builder.texts("text \u00e9\u4e16\ud83d\ude00 " + texts + "x".repeat(random.nextInt(40)));
            }
            for (int numbers = random.nextInt(17); numbers > 0; --numbers) {
                builder.numbers("number" + numbers + "x".repeat(random.nextInt(40)));
            }
            Layout layout = builder.build();
            Path table = directory.resolve("t" + i);
            MessageStore.create(table, layout).close();
            assertRead(layout, table);
        }
    }

    @Test
    void theTableOfTheDocumentIsReadAsTheDocumentSays() throws IOException {
        ByteArrayOutputStream bytes = new ByteArrayOutputStream();
        Path document = Path.of(System.getProperty("tabulo.sourceDirectory"), "docs", "file_format.md");
        for (String line : Files.readAllLines(document)) {
            Matcher matcher = DUMP.matcher(line);
            if (matcher.matches()) {
                for (String digits : matcher.group(1).strip().split(" ")) {
                    bytes.write(Integer.parseInt(digits, 16));
                }
            }
        }
        assertEquals(325, bytes.size());
        Files.write(file(), bytes.toByteArray());
        assertRead(new Layout(List.of("Symbol"), List.of("Price"), TimeUnit.MILLISECONDS), file());
    }

    @Test
    void theCommandTellsTheSameNames() throws IOException, InterruptedException {
        Path command = Path.of(System.getProperty("tabulo.nativeLibrary")).resolveSibling("tabulo");
        assumeTrue(Files.isExecutable(command), "the tabulo command is not built beside the library");
        numbered(orders(), 1).store();
        Process process = new ProcessBuilder(command.toString(), "info", "-o", "ndjson", file().toString())
                .redirectError(ProcessBuilder.Redirect.INHERIT).start();
        String told = new String(process.getInputStream().readAllBytes(), StandardCharsets.UTF_8);
        assertEquals(0, process.waitFor());
        Layout layout = Layout.read(file());
        assertTrue(told.contains(json(layout.texts())) && told.contains(json(layout.numbers())), told);
    }

    private static String json(List<String> names) {
        return "[\"" + String.join("\",\"", names) + "\"]";
    }

    @Test
    void theUnitOfTimeIsToldFromTheFirstMessage() {
        for (TimeUnit unit : List.of(TimeUnit.SECONDS, TimeUnit.MILLISECONDS, TimeUnit.MICROSECONDS,
                TimeUnit.NANOSECONDS)) {
            Path table = directory.resolve(unit.name());
            Layout layout = ORDERS.in(unit);
            try (MessageStore store = MessageStore.create(table, layout)) {
                assertEquals(TimeUnit.MILLISECONDS, Layout.read(table).timeUnit(), "without a message");
                store.append().sent().type("D").time(NOON).store();
                assertEquals(layout, Layout.read(table));
                storeNumbered(store, 2, 1001);  // a closed block
            }
            assertRead(layout, table);
        }
        Path early = directory.resolve("early");
        try (MessageStore store = MessageStore.create(early, ORDERS.in(TimeUnit.SECONDS))) {
            store.append().sent().type("D").time(Instant.EPOCH).store();
        }
        assertEquals(TimeUnit.MILLISECONDS, Layout.read(early).timeUnit(), "no unit makes it a time of today");
    }

    @Test
    void whatIsNoMessageTableIsRefused() throws IOException {
        assertFails(TabuloException.class, "FILE_OPEN_ERROR", () -> Layout.read(file()));
        assertFails(TabuloException.class, "FILE_READ_ERROR", () -> Layout.read(directory));
        Files.createFile(file());
        assertFails(TabuloDamagedException.class, "FILE_SIZE_ERROR", () -> Layout.read(file()));
        Files.writeString(file(), "no table, but long enough for one".repeat(10));
        assertFails(TabuloDamagedException.class, "SIGNATURE_ERROR", () -> Layout.read(file()));
        Path numbers = directory.resolve("numbers");
        SessionNumbers.openWriter(numbers).close();
        assertFails(TabuloException.class, "TABLE_TYPE_ERROR", () -> MessageStore.openReader(numbers));
    }

    @Test
    void aHeaderThatIsCutAnywhereIsRefused() throws IOException {
        orders();
        byte[] whole = Files.readAllBytes(file());
        Path cut = directory.resolve("cut");
        for (int length = 0; length < whole.length; ++length) {
            Files.write(cut, Arrays.copyOf(whole, length));
            String codeName = length < 19 ? "FILE_SIZE_ERROR" : "STREAM_NOT_ENOUGH_DATA_ERROR";
            assertFails(TabuloDamagedException.class, codeName, () -> Layout.read(cut));
        }
    }

    private static Layout readOrNull(Path table) {
        try {
            return Layout.read(table);
        } catch (TabuloException refused) {
            return null;
        }
    }

    /** Whether the library finds the configuration to be that of the file; it may find other damage. */
    private boolean isConfigurationOf(Path table, Layout layout) {
        try {
            MessageStore.openReader(table, layout).close();
            return true;
        } catch (TabuloException refused) {
            return List.of("FILE_SIZE_ERROR", "HEADER_CORRUPTED_ERROR", "UNRECOVERABLE_ERROR", "CONSISTENCY_ERROR",
                    "NO_DATA_ERROR").contains(refused.codeName()) && refused.table().isPresent();
        }
    }

    @Test
    void aDamagedHeaderIsRefusedOrReadAsTheLibraryReadsIt() throws IOException {
        storeNumbered(orders(), 1, 3);
        byte[] whole = Files.readAllBytes(file());
        Random random = new Random(TestRun.seed());
        Path damaged = directory.resolve("damaged");
        int read = 0;
        for (int i = 0; i < DAMAGED_FILES * TestRun.effort(); ++i) {
            byte[] bytes = whole.clone();
            for (int changes = 1 + random.nextInt(3); changes > 0; --changes) {
                bytes[random.nextInt(130)] = (byte) (random.nextBoolean() ? random.nextInt(256) : random.nextInt(3));
            }
            Files.write(damaged, bytes);
            Layout layout = readOrNull(damaged);
            if (layout == null) {
                assertThrows(TabuloException.class, () -> MessageStore.openReader(damaged, ORDERS).close(),
                        () -> "the library opens what was refused: " + Arrays.toString(bytes));
            } else {
                ++read;
                assertTrue(isConfigurationOf(damaged, layout), () -> layout + " is not the layout of "
                        + Arrays.toString(bytes));
            }
        }
        assertTrue(read > 0);
        TestRun.figure("layout", "damaged headers read in Java", (long) DAMAGED_FILES * TestRun.effort());
    }

    @Test
    void impossibleLayoutsAreRefused() {
        assertThrows(IllegalArgumentException.class, () -> Layout.builder().texts(""));
        assertThrows(IllegalArgumentException.class, () -> Layout.builder().numbers("a\0"));
        assertThrows(IllegalArgumentException.class, () -> Layout.builder().texts("a", "a"));
        assertThrows(IllegalArgumentException.class, () -> Layout.builder().timeUnit(TimeUnit.DAYS));
        List<String> names = new ArrayList<>();
        for (int i = 0; i < 17; ++i) {
            names.add("n" + i);
        }
        assertThrows(IllegalArgumentException.class,
                () -> Layout.builder().texts(names.subList(0, 13).toArray(String[]::new)).build());
        assertThrows(IllegalArgumentException.class,
                () -> Layout.builder().numbers(names.toArray(String[]::new)).build());
    }
}
