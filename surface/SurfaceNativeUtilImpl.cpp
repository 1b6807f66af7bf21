// The library frame is being written; this file is replaced in the next commit.
