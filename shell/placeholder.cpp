namespace lexctl {}
