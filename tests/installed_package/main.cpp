#include <cstdio>
#include <exception>

int UseABoard();

int main() {
    try {
        return UseABoard();
    } catch (const std::exception& error) {
        std::puts(error.what());
        return 2;
    }
}
