package com.corvane.util.log;

/**
 * Takes the text that the library logs at one level.
 *
 * <p>One log line of the library arrives as two calls: first its prefix (for example
 * {@code "Tabulo/C WARNING: tsX_open(): "}), then the message itself, which brings its own line end. A warning about
 * differing configurations arrives in more than two.
 */
public interface ILogger {
    /**
     * Writes one piece of text.
     *
     * <p>The call comes on the thread that uses the library, in the middle of the operation that logs, so it must not
     * close the table that is being used. Whatever it throws is dropped.
     *
     * @param level always 2 when the library calls
     * @param text the piece of text, a {@link String} of at most 2047 bytes when the library calls
     */
    void write(int level, Object text);
}
