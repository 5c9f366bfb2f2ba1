package com.zanth.vemra.fw.log;

public final class EventLog {
    private final Log log;

    public EventLog(Log log) {
        this.log = log;
    }

    public StringBuilder getEventText() {
        return log.text;
    }
}
