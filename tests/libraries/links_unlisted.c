int unlisted(void);

int main(void) {
    return unlisted();
}
