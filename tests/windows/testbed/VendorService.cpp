// Stands in for the display vendor's service executable: only its version
// resource is ever read.
int main()
{
    return 0;
}
