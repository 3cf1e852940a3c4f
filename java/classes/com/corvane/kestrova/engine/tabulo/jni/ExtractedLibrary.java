package com.corvane.kestrova.engine.tabulo.jni;

import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.channels.FileChannel;
import java.nio.file.AccessDeniedException;
import java.nio.file.FileSystemException;
import java.nio.file.Files;
import java.nio.file.LinkOption;
import java.nio.file.NoSuchFileException;
import java.nio.file.Path;
import java.nio.file.StandardCopyOption;
import java.nio.file.StandardOpenOption;
import java.util.UUID;

/** The jar's library as a file, from which alone the system can load it. */
final class ExtractedLibrary {
    static final String PROPERTY = NativeLibrary.PREFIX + "tmpdir";
    static final String ADVICE = "set -D" + PROPERTY + " to a directory in which this user may write and from which the"
            + " system loads code";

    private static final int HASH_DIGITS = 16;  // of a directory's name; the check is of all
    private static final int ATTEMPTS = 10;

    private ExtractedLibrary() {
    }

    /**
     * Makes sure that the file is there and is what the jar has, and that nobody removes it while this process lives.
     *
     * @param base the directory below which there is one for each user, version and hash
     * @return the file
     */
    static Path of(BundledLibrary bundled, Path base) throws NativeLibraryException {
        if (!Files.isDirectory(base)) {
            throw new NativeLibraryException(base + " is no directory", ADVICE);
        }
        PrivateDirectory directory = null;
        try {
            String prefix = "tabulo-" + PrivateDirectory.userId() + "-";
            directory = new PrivateDirectory(
                    base.resolve(prefix + bundled.version() + "-" + bundled.hash().substring(0, HASH_DIGITS)));
            hold(directory);
            Path file = directory.path().resolve(BundledLibrary.FILE_NAME);
            if (!Files.exists(file, LinkOption.NOFOLLOW_LINKS)) {
                write(bundled.bytes(), file);
            }
            check(bundled, file);
            directory.removeUnused(prefix);
            return file;
        } catch (IOException failed) {
            throw new NativeLibraryException("the library cannot be extracted to "
                    + (directory == null ? base : directory.path()) + " (" + words(failed) + ")", ADVICE, failed);
        }
    }

    /** Another process may remove the directory before it is held. */
    private static void hold(PrivateDirectory directory) throws IOException, NativeLibraryException {
        for (int attempt = 1; !directory.hold(); ++attempt) {
            if (attempt == ATTEMPTS) {
                throw new IOException("it was removed " + ATTEMPTS + " times while it was made");
            }
        }
    }

    /** The file gets its name when it is whole, also on the disk: a loss of power leaves none that is cut short. */
    private static void write(byte[] bytes, Path file) throws IOException {
        Path unfinished = file.resolveSibling(file.getFileName() + "." + UUID.randomUUID());
        try {
            try (FileChannel channel =
                    FileChannel.open(unfinished, StandardOpenOption.WRITE, StandardOpenOption.CREATE_NEW)) {
                ByteBuffer rest = ByteBuffer.wrap(bytes);
                while (rest.hasRemaining()) {
                    channel.write(rest);
                }
                channel.force(true);
            }
            Files.move(unfinished, file, StandardCopyOption.ATOMIC_MOVE);
        } finally {
            Files.deleteIfExists(unfinished);
        }
    }

    private static void check(BundledLibrary bundled, Path file) throws IOException, NativeLibraryException {
        if (!Files.isRegularFile(file, LinkOption.NOFOLLOW_LINKS)) {
            throw new NativeLibraryException(file + " is no file", "remove it, or " + ADVICE);
        }
        String found = BundledLibrary.hashOf(Files.readAllBytes(file));
        if (!found.equals(bundled.hash())) {
            throw new NativeLibraryException(file + " is not what was extracted: it has the SHA-256 " + found
                    + " and not " + bundled.hash(), "remove it, or " + ADVICE);
        }
    }

    private static String words(IOException failed) {
        if (failed instanceof AccessDeniedException denied) {
            return "permission denied: " + denied.getFile();
        }
        if (failed instanceof NoSuchFileException missing) {
            return "no such file: " + missing.getFile();
        }
        if (failed instanceof FileSystemException other && other.getReason() != null) {
            return other.getReason();
        }
        return String.valueOf(failed.getMessage());
    }
}
