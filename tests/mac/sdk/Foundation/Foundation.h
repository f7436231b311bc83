// What the wizard uses of Apple's Foundation, declared as its documentation gives it. There is
// nothing behind these declarations: script/check-mac compiles against them, and links nothing.
#pragma once

#import <objc/objc.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#define NS_DESIGNATED_INITIALIZER __attribute__((objc_designated_initializer))
#define NS_RETURNS_INNER_POINTER __attribute__((objc_returns_inner_pointer))
// In C++ a set of options is a number, and an enumeration takes none.
#define NS_ENUM(type, name) \
  enum name : type name;    \
  enum name : type
#define NS_OPTIONS(type, name) \
  type name;                   \
  enum : type

typedef long NSInteger;
typedef unsigned long NSUInteger;
typedef double CGFloat;
typedef double NSTimeInterval;
typedef unsigned short unichar;

struct CGPoint {
  CGFloat x;
  CGFloat y;
};
struct CGSize {
  CGFloat width;
  CGFloat height;
};
struct CGRect {
  CGPoint origin;
  CGSize size;
};
typedef CGPoint NSPoint;
typedef CGSize NSSize;
typedef CGRect NSRect;
struct NSRange {
  NSUInteger location;
  NSUInteger length;
};

extern const NSPoint NSZeroPoint;
extern const NSRect NSZeroRect;

inline NSPoint NSMakePoint(CGFloat x, CGFloat y) { return {x, y}; }
inline NSRect NSMakeRect(CGFloat x, CGFloat y, CGFloat width, CGFloat height) {
  return {{x, y}, {width, height}};
}
inline NSRange NSMakeRange(NSUInteger location, NSUInteger length) { return {location, length}; }
inline CGFloat NSMinX(NSRect rect) { return rect.origin.x; }
inline CGFloat NSMinY(NSRect rect) { return rect.origin.y; }
inline CGFloat NSWidth(NSRect rect) { return rect.size.width; }
inline CGFloat NSHeight(NSRect rect) { return rect.size.height; }

#pragma clang assume_nonnull begin

@class NSString, NSArray<ObjectType>, NSError, NSURL;

@protocol NSObject
- (BOOL)isEqual:(nullable id)object;
- (BOOL)isKindOfClass:(Class)type;
- (BOOL)respondsToSelector:(SEL)selector;
- (instancetype)self;
- (instancetype)retain;
- (oneway void)release;
- (instancetype)autorelease;
@end

__attribute__((objc_root_class))
@interface NSObject<NSObject>
+ (instancetype)alloc;
+ (instancetype)new;
+ (Class)class;
- (instancetype)init NS_DESIGNATED_INITIALIZER;
- (void)dealloc;
@end

@interface NSAutoreleasePool : NSObject
@end

@interface NSArray<__covariant ObjectType> : NSObject
@property(readonly) NSUInteger count;
- (ObjectType)objectAtIndex:(NSUInteger)index;
- (NSString*)componentsJoinedByString:(NSString*)separator;
@end

@interface NSCharacterSet : NSObject
+ (NSCharacterSet*)characterSetWithCharactersInString:(NSString*)letters;
@end

@interface NSString : NSObject
@property(readonly) NSUInteger length;
@property(nullable, readonly) const char* UTF8String NS_RETURNS_INNER_POINTER;
+ (nullable instancetype)stringWithUTF8String:(const char*)text;
- (BOOL)isEqualToString:(NSString*)other;
- (NSString*)substringToIndex:(NSUInteger)end;
- (NSString*)stringByAppendingString:(NSString*)more;
- (NSArray<NSString*>*)componentsSeparatedByCharactersInSet:(NSCharacterSet*)separators;
@end

@interface NSDictionary<__covariant KeyType, __covariant ObjectType> : NSObject
+ (instancetype)dictionaryWithObject:(ObjectType)object forKey:(KeyType)key;
@end

@interface NSUserDefaults : NSObject
@property(class, readonly, strong) NSUserDefaults* standardUserDefaults;
- (void)registerDefaults:(NSDictionary<NSString*, id>*)defaults;
@end

@interface NSData : NSObject
+ (instancetype)dataWithBytes:(nullable const void*)bytes length:(NSUInteger)length;
@end

@interface NSDate : NSObject
@end

@interface NSLocale : NSObject
@property(class, readonly, copy) NSLocale* currentLocale;
@property(readonly, copy) NSString* localeIdentifier;
@end

@interface NSURL : NSObject
@property(nullable, readonly, copy) NSString* path;
@property(readonly) const char* fileSystemRepresentation NS_RETURNS_INNER_POINTER;
+ (NSURL*)fileURLWithFileSystemRepresentation:(const char*)path
                                  isDirectory:(BOOL)isDirectory
                                relativeToURL:(nullable NSURL*)base;
@end

typedef NSString* NSRunLoopMode;
extern NSRunLoopMode const NSDefaultRunLoopMode;

typedef NSString* NSNotificationName;

@interface NSNotification : NSObject
@property(nullable, readonly, retain) id object;
@end

@interface NSOperationQueue : NSObject
@end

@interface NSNotificationCenter : NSObject
@property(class, readonly, retain) NSNotificationCenter* defaultCenter;
- (id<NSObject>)addObserverForName:(nullable NSNotificationName)name
                            object:(nullable id)object
                             queue:(nullable NSOperationQueue*)queue
                        usingBlock:(void (^)(NSNotification* notification))block;
@end

#pragma clang assume_nonnull end
