// Converts between property lists and keyed archives with GNUstep's archiver, from standard input to standard
// output:
//   archive         a property list to an archive of it
//   unarchive       an archive to a binary property list of what it holds
//   archive-record  a property list {name, count, list} to an archive of a FixtureRecord with these members
//   unarchive-record  the reverse
#import <Foundation/Foundation.h>

#include <stdio.h>

@interface FixtureRecord : NSObject <NSCoding>
{
  @public
    NSString *name;
    int count;
    NSArray *list;
}
@end

@implementation FixtureRecord
- (void)encodeWithCoder:(NSCoder *)coder
{
    [coder encodeObject:name forKey:@"name"];
    [coder encodeInt:count forKey:@"count"];
    [coder encodeObject:list forKey:@"list"];
    [coder encodeObject:nil forKey:@"nothing"];
}

- (id)initWithCoder:(NSCoder *)coder
{
    name = [[coder decodeObjectForKey:@"name"] retain];
    count = [coder decodeIntForKey:@"count"];
    list = [[coder decodeObjectForKey:@"list"] retain];
    if ([coder decodeObjectForKey:@"nothing"] != nil)
        exit(3);
    return self;
}
@end

static id readPropertyList(NSData *data)
{
    return [NSPropertyListSerialization propertyListWithData:data
                                                     options:NSPropertyListMutableContainers
                                                      format:NULL
                                                       error:NULL];
}

static NSData *propertyList(id root)
{
    return [NSPropertyListSerialization dataFromPropertyList:root
                                                      format:NSPropertyListBinaryFormat_v1_0
                                            errorDescription:NULL];
}

static NSData *recordArchive(NSDictionary *members)
{
    FixtureRecord *record = [[FixtureRecord new] autorelease];
    record->name = [members objectForKey:@"name"];
    record->count = [[members objectForKey:@"count"] intValue];
    record->list = [members objectForKey:@"list"];
    return [NSKeyedArchiver archivedDataWithRootObject:record];
}

static NSDictionary *recordMembers(NSData *archive)
{
    FixtureRecord *record = [NSKeyedUnarchiver unarchiveObjectWithData:archive];
    if (![record isKindOfClass:[FixtureRecord class]])
        exit(4);
    return [NSDictionary dictionaryWithObjectsAndKeys:record->name, @"name",
                                                      [NSNumber numberWithInt:record->count], @"count",
                                                      record->list, @"list", nil];
}

int main(int argc, const char **argv)
{
    NSAutoreleasePool *pool = [NSAutoreleasePool new];
    NSString *command = argc == 2 ? [NSString stringWithUTF8String:argv[1]] : @"";
    NSData *input = [[NSFileHandle fileHandleWithStandardInput] readDataToEndOfFile];
    NSData *output = nil;
    if ([command isEqual:@"archive"])
        output = [NSKeyedArchiver archivedDataWithRootObject:readPropertyList(input)];
    else if ([command isEqual:@"unarchive"])
        output = propertyList([NSKeyedUnarchiver unarchiveObjectWithData:input]);
    else if ([command isEqual:@"archive-record"])
        output = recordArchive(readPropertyList(input));
    else if ([command isEqual:@"unarchive-record"])
        output = propertyList(recordMembers(input));
    size_t written = fwrite([output bytes], 1, [output length], stdout);
    BOOL complete = output != nil && written == [output length] && fflush(stdout) == 0;
    [pool release];
    return complete ? 0 : 2;
}
