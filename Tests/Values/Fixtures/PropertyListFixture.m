// Converts property lists with GNUstep, from standard input to standard output. The argument names the form to
// write: binary, xml, openstep or gnustep.
#import <Foundation/Foundation.h>

#include <stdio.h>
#include <string.h>

static NSPropertyListFormat formatNamed(const char *name)
{
    if (strcmp(name, "binary") == 0)
        return NSPropertyListBinaryFormat_v1_0;
    if (strcmp(name, "xml") == 0)
        return NSPropertyListXMLFormat_v1_0;
    return strcmp(name, "openstep") == 0 ? NSPropertyListOpenStepFormat : NSPropertyListGNUstepFormat;
}

int main(int argc, char **argv)
{
    NSAutoreleasePool *pool = [NSAutoreleasePool new];
    NSData *input = [[NSFileHandle fileHandleWithStandardInput] readDataToEndOfFile];
    NSPropertyListFormat format;
    NSString *error = nil;
    id list = [NSPropertyListSerialization propertyListFromData:input
                                               mutabilityOption:NSPropertyListImmutable
                                                         format:&format
                                               errorDescription:&error];
    NSData *output = list == nil || argc < 2
        ? nil
        : [NSPropertyListSerialization dataFromPropertyList:list
                                                     format:formatNamed(argv[1])
                                           errorDescription:&error];
    if (output == nil)
    {
        fprintf(stderr, "%s\n", error == nil ? "no property list" : [error UTF8String]);
        return 1;
    }
    fwrite([output bytes], 1, [output length], stdout);
    [pool release];
    return 0;
}
