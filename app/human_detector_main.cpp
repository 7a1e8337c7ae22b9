#include "app/application.h"

int main() {
    Application application;
    return application.main();
}
