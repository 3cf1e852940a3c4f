package com.corvane.kestrova.engine.tabulo.jni;

import java.io.IOException;
import java.nio.channels.FileChannel;
import java.nio.channels.OverlappingFileLockException;
import java.nio.file.DirectoryStream;
import java.nio.file.FileAlreadyExistsException;
import java.nio.file.Files;
import java.nio.file.LinkOption;
import java.nio.file.NoSuchFileException;
import java.nio.file.OpenOption;
import java.nio.file.Path;
import java.nio.file.StandardOpenOption;
import java.nio.file.attribute.BasicFileAttributes;
import java.nio.file.attribute.PosixFilePermissions;
import java.util.ArrayList;
import java.util.List;
import java.util.Map;
import java.util.Set;

/**
 * A directory that one user alone may enter, with a lock file in it. Each process that uses the directory holds a shared
 * lock on that file until it ends; whoever gets the lock for itself may remove the directory.
 */
record PrivateDirectory(Path path) {
    private static final String LOCK = "lock";
    private static final int PERMISSIONS = 0700;
    private static final int PERMISSION_BITS = 0777;
    private static final Set<OpenOption> READ = Set.of(StandardOpenOption.READ, LinkOption.NOFOLLOW_LINKS);
    private static final Set<OpenOption> WRITE = Set.of(StandardOpenOption.WRITE, LinkOption.NOFOLLOW_LINKS);

    /**
     * Files that stay open until the process ends. Closing one gives up every lock that the process has on that file,
     * also those of other class loaders: what one of them has locked is never closed.
     */
    private static final List<FileChannel> HELD = new ArrayList<>();

    /** The number of the user that this process acts for. */
    static int userId() throws IOException {
        for (String line : Files.readAllLines(Path.of("/proc/self/status"))) {
            if (line.startsWith("Uid:")) {
                return Integer.parseUnsignedInt(line.split("\\s+")[2]);
            }
        }
        throw new IOException("/proc/self/status does not tell the user");
    }

    /**
     * Makes the directory unless it is there, and locks it against removal until the process ends.
     *
     * @return whether that succeeded; else another process has removed the directory meanwhile
     * @throws NativeLibraryException when it is there and is not private to this user
     */
    boolean hold() throws IOException, NativeLibraryException {
        try {
            Files.createDirectory(path,
                    PosixFilePermissions.asFileAttribute(PosixFilePermissions.fromString("rwx------")));
        } catch (FileAlreadyExistsException itIsThere) {
            // made by an earlier process, or by somebody else
        }
        try {
            String why = whyNotPrivate();
            if (why != null) {
                throw new NativeLibraryException(path + " is not used, since " + why,
                        "remove it, or " + ExtractedLibrary.ADVICE);
            }
            return lockForUse();
        } catch (NoSuchFileException removed) {
            return false;
        }
    }

    private boolean lockForUse() throws IOException {
        Path file = path.resolve(LOCK);
        Object found = keyOfLock(file);
        // For reading: on a disk that cannot be written a directory that is there can be used, too.
        FileChannel channel = FileChannel.open(file, READ);
        try {
            channel.lock(0, Long.MAX_VALUE, true);
        } catch (OverlappingFileLockException ofAnotherLoader) {
            HELD.add(channel);
            return true;
        } catch (IOException refused) {
            channel.close();
            throw refused;
        }
        HELD.add(channel);
        // What was locked may have been removed while the lock was waited for.
        return found.equals(key(file));
    }

    /** What tells the lock file from another one of its name; makes it when there is none. */
    private static Object keyOfLock(Path file) throws IOException {
        if (!Files.exists(file, LinkOption.NOFOLLOW_LINKS)) {
            try {
                Files.createFile(file);
            } catch (FileAlreadyExistsException justMade) {
                // by another process
            }
        }
        return key(file);
    }

    private static Object key(Path file) throws IOException {
        return Files.readAttributes(file, BasicFileAttributes.class, LinkOption.NOFOLLOW_LINKS).fileKey();
    }

    /** Why others than this user could have put something into it, or null. */
    private String whyNotPrivate() throws IOException {
        Map<String, Object> found = Files.readAttributes(path, "unix:uid,mode,isDirectory", LinkOption.NOFOLLOW_LINKS);
        int mode = (int) found.get("mode") & PERMISSION_BITS;
        if (!(boolean) found.get("isDirectory")) {
            return "it is no directory";
        }
        if ((int) found.get("uid") != userId()) {
            return "it belongs to the user " + found.get("uid") + " and not to " + userId();
        }
        return mode == PERMISSIONS ? null : "others may enter it: its mode is " + Integer.toOctalString(mode);
    }

    /** Removes the directories beside this one whose names begin so and that nobody uses; those where it fails stay. */
    void removeUnused(String prefix) {
        try (DirectoryStream<Path> found = Files.newDirectoryStream(path.getParent(), prefix + "*")) {
            for (Path other : found) {
                if (!other.equals(path)) {
                    new PrivateDirectory(other).removeUnlessUsed();
                }
            }
        } catch (IOException unreadable) {
            // Cleaning up can wait for the next process.
        }
    }

    private void removeUnlessUsed() {
        try {
            if (whyNotPrivate() == null) {
                removeIfItCanBeLocked();
            }
        } catch (IOException failed) {
            // It stays for the next process, which may be luckier.
        }
    }

    private void removeIfItCanBeLocked() throws IOException {
        Path file = path.resolve(LOCK);
        Object found = keyOfLock(file);
        FileChannel channel = FileChannel.open(file, WRITE);
        boolean isUsedHere = false;
        try {
            if (channel.tryLock() != null && found.equals(key(file))) {
                remove();
            }
        } catch (OverlappingFileLockException ofAnotherLoader) {
            isUsedHere = true;
            HELD.add(channel);
        } finally {
            if (!isUsedHere) {
                channel.close();
            }
        }
    }

    /** The lock goes last: whoever waits for it finds nothing there and begins anew. */
    private void remove() throws IOException {
        try (DirectoryStream<Path> files = Files.newDirectoryStream(path)) {
            for (Path file : files) {
                if (!file.getFileName().toString().equals(LOCK)) {
                    Files.delete(file);
                }
            }
        }
        Files.delete(path.resolve(LOCK));
        Files.delete(path);
    }
}
