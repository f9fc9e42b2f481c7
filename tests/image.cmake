add_char_test (image)
