# Fields that the Java side serves: id, one character that nobody reads, length in bytes.
