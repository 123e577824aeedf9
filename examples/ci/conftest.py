pytest_plugins = ["kivo_dev"]
