// Linked with the whole archive of one layer and only the layers that it may use: whatever is
// missing fails the link.
int main() {
    return 0;
}
