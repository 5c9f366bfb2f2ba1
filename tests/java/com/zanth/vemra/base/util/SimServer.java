package com.zanth.vemra.base.util;

import java.util.concurrent.ConcurrentHashMap;

public final class SimServer {
    private static final ConcurrentHashMap<Integer, byte[]> FIELDS = new ConcurrentHashMap<>();

    public static byte[] getSimData(int id) {
        byte[] value = FIELDS.get(id);
        return value == null ? null : value.clone();
    }

    public static void setSimData(int id, byte[] value) {
        FIELDS.put(id, value);
    }
}
