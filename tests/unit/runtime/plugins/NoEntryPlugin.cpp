extern "C" int something_else()
{
    return 0;
}
