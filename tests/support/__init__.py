"""What the scripts of the tests share. A script puts the folder tests/ in front of its module path."""
