package com.zanth.vemra.fw.shutdown;

public final class ShutdownManager {
    /** Answers with the number that the message is. */
    public static int nativeRestart(String application, String message, int type) {
        return Integer.parseInt(message);
    }
}
