package com.zanth.vemra.fw.log;

import com.zanth.vemra.fw.util.ObjectDumperAttributes;
import java.util.Date;

public class Log {
    final StringBuilder text = new StringBuilder();

    public Log(byte logClass, byte type, short user, String name, Date date, Throwable cause, String a, String b) {
        text.append(logClass).append(' ').append(type).append(' ').append(user).append(' ').append(name);
        text.append(date == null && cause == null && a == null && b == null ? "" : " not null");
    }

    public void add(Object data, byte id, ObjectDumperAttributes attributes) {
        text.append(' ').append(id).append('=').append(((byte[]) data).length);
    }
}
