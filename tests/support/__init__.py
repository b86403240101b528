"""What the test scripts share. A script puts the folder tests/ at the front of its module path."""
