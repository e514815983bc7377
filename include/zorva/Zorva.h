#pragma once

// Everything a publisher's app needs: the SDK settings, the ad request, the three formats, and the
// platform's parts an app places them with (its main queue, device profile, view controllers,
// windows and layout constraints).
#include <zorva/ZVAdRequest.h>
#include <zorva/ZVBannerView.h>
#include <zorva/ZVErrors.h>
#include <zorva/ZVInBannerVideo.h>
#include <zorva/ZVInterstitialAd.h>
#include <zorva/ZorvaSDK.h>
#include <zorva/ZorvaVersion.h>
#include <zorva/platform/DeviceProfile.h>
#include <zorva/platform/LayoutConstraint.h>
#include <zorva/platform/MainQueue.h>
#include <zorva/platform/ViewController.h>
#include <zorva/platform/Window.h>
