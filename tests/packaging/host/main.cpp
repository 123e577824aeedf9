extern "C" int runHost();

int main() { return runHost(); }
