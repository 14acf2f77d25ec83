// Archives and unarchives records with GNUstep's archiver, from standard input to standard output:
//   archive CLASS    a property list of a record's members to an archive of the record
//   unarchive CLASS  an archive of a record to a property list of its members; null members are left out
#import <Foundation/Foundation.h>

#include <stdio.h>

/// One member: its key and the type code of its number kind, '@' for any object.
typedef struct
{
    NSString *key;
    char kind;
} Member;

static const Member deviceMembers[] = {
    {@"name", '@'},           {@"serial", '@'},          {@"firmware", '@'},      {@"urserial", '@'},
    {@"urfirmware", '@'},     {@"iurfirmware", 'i'},     {@"saddress", '@'},      {@"productid", 'i'},
    {@"rawpid", 'i'},         {@"vendorid", 'i'},        {@"refdevice", 'L'},     {@"address", 'i'},
    {@"interface", 'I'},      {@"devtype", 'C'},         {@"universal", 'B'},     {@"fullyenumerated", 'B'},
    {@"basedevpath", '@'},    {@"devpath", '@'},         {@"paireddevices", '@'}, {@"devref", 'Q'},
};

static const Member applicationMembers[] = {
    {@"clientid", '@'},     {@"appname", '@'},    {@"appfilename", '@'},  {@"clientname", '@'},
    {@"bundleid", '@'},     {@"exepath", '@'},    {@"commandsfile", '@'}, {@"imagesfile", '@'},
    {@"settingsfile", '@'}, {@"signature", '@'},  {@"processid", '@'},    {@"mode", '@'},
    {@"mask", '@'},         {@"buttonmask", '@'}, {@"switches", '@'},     {@"channelid", '@'},
};

static id memberObject(NSNumber *value, char kind)
{
    if (value == nil)
        return nil;
    switch (kind)
    {
        case 'i':
            return [NSNumber numberWithInt:[value intValue]];
        case 'I':
            return [NSNumber numberWithUnsignedInt:[value unsignedIntValue]];
        case 'L':
            return [NSNumber numberWithUnsignedLong:[value unsignedLongValue]];
        case 'Q':
            return [NSNumber numberWithUnsignedLongLong:[value unsignedLongLongValue]];
        case 'C':
            return [NSNumber numberWithUnsignedChar:[value unsignedCharValue]];
        case 'B':
            return [NSNumber numberWithBool:[value boolValue]];
        default:
            return value;
    }
}

@interface FixtureRecord : NSObject <NSCoding>
{
  @public
    NSMutableDictionary *values;
}
+ (const Member *)members;
+ (size_t)memberCount;
@end

@implementation FixtureRecord
+ (const Member *)members
{
    return NULL;
}

+ (size_t)memberCount
{
    return 0;
}

- (void)encodeWithCoder:(NSCoder *)coder
{
    size_t i;
    for (i = 0; i < [[self class] memberCount]; ++i)
    {
        Member member = [[self class] members][i];
        [coder encodeObject:memberObject([values objectForKey:member.key], member.kind) forKey:member.key];
    }
}

- (id)initWithCoder:(NSCoder *)coder
{
    size_t i;
    values = [NSMutableDictionary new];
    for (i = 0; i < [[self class] memberCount]; ++i)
    {
        Member member = [[self class] members][i];
        id value = [coder decodeObjectForKey:member.key];
        if (value != nil)
            [values setObject:value forKey:member.key];
    }
    return self;
}
@end

@interface MxlHIDDevice : FixtureRecord
@end

@implementation MxlHIDDevice
+ (const Member *)members
{
    return deviceMembers;
}

+ (size_t)memberCount
{
    return sizeof deviceMembers / sizeof deviceMembers[0];
}
@end

@interface MxlApplication : FixtureRecord
@end

@implementation MxlApplication
+ (const Member *)members
{
    return applicationMembers;
}

+ (size_t)memberCount
{
    return sizeof applicationMembers / sizeof applicationMembers[0];
}
@end

static NSData *archiveOf(Class recordClass, NSData *list)
{
    FixtureRecord *record = [[recordClass new] autorelease];
    record->values = [NSPropertyListSerialization propertyListWithData:list
                                                               options:NSPropertyListMutableContainers
                                                                format:NULL
                                                                 error:NULL];
    return [NSKeyedArchiver archivedDataWithRootObject:record];
}

static NSData *membersOf(Class recordClass, NSData *archive)
{
    FixtureRecord *record = [NSKeyedUnarchiver unarchiveObjectWithData:archive];
    if (![record isMemberOfClass:recordClass])
        exit(3);
    return [NSPropertyListSerialization dataFromPropertyList:record->values
                                                      format:NSPropertyListBinaryFormat_v1_0
                                            errorDescription:NULL];
}

int main(int argc, const char **argv)
{
    NSAutoreleasePool *pool = [NSAutoreleasePool new];
    NSString *command = argc == 3 ? [NSString stringWithUTF8String:argv[1]] : @"";
    Class recordClass = argc == 3 ? NSClassFromString([NSString stringWithUTF8String:argv[2]]) : Nil;
    NSData *input = [[NSFileHandle fileHandleWithStandardInput] readDataToEndOfFile];
    NSData *output = nil;
    if ([command isEqual:@"archive"])
        output = archiveOf(recordClass, input);
    else if ([command isEqual:@"unarchive"])
        output = membersOf(recordClass, input);
    size_t written = fwrite([output bytes], 1, [output length], stdout);
    BOOL complete = output != nil && written == [output length] && fflush(stdout) == 0;
    [pool release];
    return complete ? 0 : 2;
}
