// Platform detection; replaced in a following commit.
