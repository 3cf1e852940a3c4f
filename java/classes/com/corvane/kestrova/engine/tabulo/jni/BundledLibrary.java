package com.corvane.kestrova.engine.tabulo.jni;

import java.io.IOException;
import java.io.InputStream;
import java.security.MessageDigest;
import java.security.NoSuchAlgorithmException;
import java.util.HexFormat;
import java.util.Properties;

/**
 * A library that the jar brings along: its bytes, their SHA-256 as the build recorded it, and the version. The files
 * stand beside the classes, so that they are found in a module, in an image and in a jar of everything, too.
 */
record BundledLibrary(String version, String hash, byte[] bytes) {
    static final String FILE_NAME = "libtabulo.so";
    private static final String RECORD = "native.properties";
    private static final String OTHERWISE = "name a libtabulo.so with " + NativeLibrary.FILE_OPTION;

    /** The one for a system, checked. */
    static BundledLibrary of(String platform) throws NativeLibraryException {
        Properties recorded = new Properties();
        byte[] bytes;
        try (InputStream properties = BundledLibrary.class.getResourceAsStream(RECORD);
                InputStream library = BundledLibrary.class.getResourceAsStream(platform + "/" + FILE_NAME)) {
            if (properties == null || library == null) {
                throw new NativeLibraryException("there is no library for " + platform + " beside the classes of this"
                        + " jar, which is not the packaged one", "use the packaged jar tabulo-<version>.jar, or "
                        + OTHERWISE);
            }
            recorded.load(properties);
            bytes = library.readAllBytes();
        } catch (IOException failed) {
            throw new NativeLibraryException("the jar cannot be read (" + failed + ")", OTHERWISE, failed);
        }
        String hash = recorded.getProperty("sha256." + platform, "");
        if (!hash.equals(hashOf(bytes))) {
            throw new NativeLibraryException("the jar is damaged: its library for " + platform + " has the SHA-256 "
                    + hashOf(bytes) + " and not " + hash, "get the jar anew, or " + OTHERWISE);
        }
        return new BundledLibrary(recorded.getProperty("version", "unknown"), hash, bytes);
    }

    static String hashOf(byte[] bytes) {
        try {
            return HexFormat.of().formatHex(MessageDigest.getInstance("SHA-256").digest(bytes));
        } catch (NoSuchAlgorithmException impossible) {
            throw new AssertionError("every Java platform has SHA-256", impossible);
        }
    }
}
