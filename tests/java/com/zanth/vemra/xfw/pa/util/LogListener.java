package com.zanth.vemra.xfw.pa.util;

public final class LogListener {
    private static volatile String last = "none";

    static void handle(byte logClass, byte type, short user, long milliseconds) {
        if (logClass == 0x7F) {
            throw new IllegalStateException("\u00DCberlauf\n\uD83D\uDE00");
        }
        last = (logClass & 0xFF) + " " + (type & 0xFF) + " " + (user & 0xFFFF) + " " + milliseconds;
    }

    public static String last() {
        return last;
    }
}
