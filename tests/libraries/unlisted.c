int unlisted(void) {
    return 0;
}
