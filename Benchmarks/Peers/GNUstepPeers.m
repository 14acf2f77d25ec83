// What GNUstep's Foundation does beside the library: work on another thread, and keyed archives.
#import <Foundation/Foundation.h>

#include "GNUstepPeers.h"

// ---------------------------------------------------------------------------------------------- Threads

@interface BenchmarkThread : NSObject
{
  @public
    void (*function)(void *);
    void *context;
    NSThread *thread;
    NSConditionLock *state; // 1 when the run loop is about to run, 2 when it has ended.
    BOOL ended;
}
- (void)perform;
- (void)end;
@end

@implementation BenchmarkThread
- (void)run
{
    NSAutoreleasePool *pool = [NSAutoreleasePool new];
    // Without a port the loop would return at once.
    NSPort *port = [NSPort port];
    [[NSRunLoop currentRunLoop] addPort:port forMode:NSDefaultRunLoopMode];
    [state lock];
    [state unlockWithCondition:1];
    while (!ended)
    {
        NSAutoreleasePool *turn = [NSAutoreleasePool new];
        [[NSRunLoop currentRunLoop] runMode:NSDefaultRunLoopMode beforeDate:[NSDate distantFuture]];
        [turn release];
    }
    [state lock];
    [state unlockWithCondition:2];
    [pool release];
}

- (void)perform
{
    function(context);
}

- (void)end
{
    ended = YES;
}
@end

void *gnustepThreadStart(void (*function)(void *), void *context)
{
    NSAutoreleasePool *pool = [NSAutoreleasePool new];
    BenchmarkThread *started = [BenchmarkThread new];
    started->function = function;
    started->context = context;
    started->state = [[NSConditionLock alloc] initWithCondition:0];
    started->thread = [[NSThread alloc] initWithTarget:started selector:@selector(run) object:nil];
    [started->thread start];
    [started->state lockWhenCondition:1];
    [started->state unlock];
    [pool release];
    return started;
}

void gnustepThreadPerform(void *thread)
{
    NSAutoreleasePool *pool = [NSAutoreleasePool new];
    BenchmarkThread *target = thread;
    [target performSelector:@selector(perform) onThread:target->thread withObject:nil waitUntilDone:NO];
    [pool release];
}

void gnustepThreadStop(void *thread)
{
    NSAutoreleasePool *pool = [NSAutoreleasePool new];
    BenchmarkThread *target = thread;
    [target performSelector:@selector(end) onThread:target->thread withObject:nil waitUntilDone:NO];
    [target->state lockWhenCondition:2];
    [target->state unlock];
    [target->thread release];
    [target->state release];
    [target release];
    [pool release];
}

// ---------------------------------------------------------------------------------------------- Archives

/// The record of an application: whatever members it has.
@interface MxlApplication : NSObject <NSCoding>
{
    NSMutableDictionary *members;
}
@end

@implementation MxlApplication
- (id)initWithCoder:(NSCoder *)coder
{
    NSString *keys[] = {@"clientid",     @"appname",    @"appfilename",  @"clientname",
                        @"bundleid",     @"exepath",    @"commandsfile", @"imagesfile",
                        @"settingsfile", @"signature",  @"processid",    @"mode",
                        @"mask",         @"buttonmask", @"switches",     @"channelid"};
    size_t i;
    members = [NSMutableDictionary new];
    for (i = 0; i < sizeof keys / sizeof keys[0]; ++i)
    {
        id member = [coder decodeObjectForKey:keys[i]];
        if (member != nil)
            [members setObject:member forKey:keys[i]];
    }
    return self;
}

- (void)encodeWithCoder:(NSCoder *)coder
{
    NSEnumerator *keys = [members keyEnumerator];
    NSString *key;
    while ((key = [keys nextObject]) != nil)
        [coder encodeObject:[members objectForKey:key] forKey:key];
}

- (void)dealloc
{
    [members release];
    [super dealloc];
}
@end

void *gnustepUnarchive(const uint8_t *bytes, size_t size)
{
    NSAutoreleasePool *pool = [NSAutoreleasePool new];
    NSData *data = [NSData dataWithBytesNoCopy:(void *)bytes length:size freeWhenDone:NO];
    id objects = nil;
    NS_DURING
        objects = [[NSKeyedUnarchiver unarchiveObjectWithData:data] retain];
    NS_HANDLER
        objects = nil; // It knows no UIDs of four bytes, which an archive of 65,536 objects has.
    NS_ENDHANDLER
    [pool release];
    return objects;
}

void *gnustepArchive(void *objects)
{
    NSAutoreleasePool *pool = [NSAutoreleasePool new];
    NSData *data = [[NSKeyedArchiver archivedDataWithRootObject:(id)objects] retain];
    [pool release];
    return data;
}

void gnustepRelease(void *object)
{
    NSAutoreleasePool *pool = [NSAutoreleasePool new];
    [(id)object release];
    [pool release];
}
