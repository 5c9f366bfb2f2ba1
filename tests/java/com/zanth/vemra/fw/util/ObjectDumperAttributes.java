package com.zanth.vemra.fw.util;

public final class ObjectDumperAttributes {
}
